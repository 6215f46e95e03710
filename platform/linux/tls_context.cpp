// Certificate lookup and the OpenSSL contexts of the secure channel.
#include "varnek/platform/linux/tls_context.h"

#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/pkcs12.h>
#include <openssl/ssl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "varnek/runtime/failure.h"

namespace varnek {

namespace {

[[noreturn]] void FailCertificate(const std::string& name, const std::string& why) {
  Fail(kSockErrCertificate, "certificate " + name + ": " + why);
}

// The reason of the oldest OpenSSL failure queued, and the queue emptied.
std::string OpenSslReason() {
  const unsigned long code = ERR_get_error();
  ERR_clear_error();
  if (code == 0) return "unknown reason";
  const char* reason = ERR_reason_error_string(code);
  return reason ? reason : "unknown reason";
}

bool Exists(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0;
}

// Fails unless the file opens for reading; a key file also fails when others
// may read or write it.
void CheckReadable(const std::string& name, const std::string& path, bool secret) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) FailCertificate(name, "cannot read " + path + " (" + std::strerror(errno) + ")");
  struct stat st {};
  const bool stated = ::fstat(fd, &st) == 0;
  ::close(fd);
  if (!stated || !S_ISREG(st.st_mode)) FailCertificate(name, path + " is not a file");
  if (secret && (st.st_mode & (S_IROTH | S_IWOTH))) {
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(st.st_mode & 07777));
    FailCertificate(name, path + " is open to others (mode " + mode + "); chmod o-rw it");
  }
}

// What identifies a version of the files: a renewed certificate differs.
std::string FilesStamp(const CertificateFiles& files) {
  std::string stamp;
  for (const std::string* path : {&files.chain, &files.key}) {
    struct stat st {};
    if (path->empty() || ::stat(path->c_str(), &st) != 0) continue;
    stamp += *path + ":" + std::to_string(st.st_ino) + ":" + std::to_string(st.st_size) + ":" +
             std::to_string(st.st_mtim.tv_sec) + "." + std::to_string(st.st_mtim.tv_nsec) + ";";
  }
  return stamp;
}

// TLS 1.2 and 1.3, no renegotiation; a peer's close without close_notify
// reads as the end of its stream; a write may end after any whole record and
// resume from a buffer that has moved; idle connections give their buffers
// back.
TlsContext NewContext(const SSL_METHOD* method) {
  TlsContext owned(SSL_CTX_new(method), SSL_CTX_free);
  SSL_CTX* ctx = owned.get();
  if (!ctx) return nullptr;
  SSL_CTX_set_min_proto_version(ctx, TLS1_2_VERSION);
  SSL_CTX_set_max_proto_version(ctx, TLS1_3_VERSION);
  SSL_CTX_set_options(ctx, SSL_OP_NO_RENEGOTIATION | SSL_OP_IGNORE_UNEXPECTED_EOF);
  SSL_CTX_set_mode(ctx, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                            SSL_MODE_RELEASE_BUFFERS);
  return owned;
}

void LoadPem(SSL_CTX* ctx, const std::string& name, const CertificateFiles& files) {
  CheckReadable(name, files.chain, false);
  CheckReadable(name, files.key, true);
  if (SSL_CTX_use_certificate_chain_file(ctx, files.chain.c_str()) != 1) {
    FailCertificate(name, files.chain + " holds no usable certificate (" + OpenSslReason() + ")");
  }
  if (SSL_CTX_use_PrivateKey_file(ctx, files.key.c_str(), SSL_FILETYPE_PEM) != 1) {
    const std::string reason = OpenSslReason();
    if (reason.find("mismatch") != std::string::npos) {
      FailCertificate(name, files.key + " does not match " + files.chain);
    }
    FailCertificate(name, files.key + " holds no usable private key (" + reason + ")");
  }
}

void LoadP12(SSL_CTX* ctx, const std::string& name, const CertificateFiles& files) {
  CheckReadable(name, files.chain, true);
  FILE* f = std::fopen(files.chain.c_str(), "rb");
  PKCS12* p12 = f ? d2i_PKCS12_fp(f, nullptr) : nullptr;
  if (f) std::fclose(f);
  EVP_PKEY* key = nullptr;
  X509* cert = nullptr;
  STACK_OF(X509)* chain = nullptr;
  const bool parsed = p12 && (PKCS12_parse(p12, "", &key, &cert, &chain) == 1 ||
                              PKCS12_parse(p12, nullptr, &key, &cert, &chain) == 1);
  PKCS12_free(p12);
  const bool used =
      parsed && key && cert && SSL_CTX_use_cert_and_key(ctx, cert, key, chain, 1) == 1;
  const std::string reason = used ? "" : OpenSslReason();
  EVP_PKEY_free(key);
  X509_free(cert);
  sk_X509_pop_free(chain, X509_free);
  if (!used)
    FailCertificate(name, files.chain + " holds no usable certificate and key (" + reason + ")");
}

}  // namespace

std::vector<std::string> CertificateFolders() {
  std::vector<std::string> folders;
  if (const char* dir = std::getenv("VARNEK_CERT_DIR"); dir && *dir) folders.emplace_back(dir);
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg) {
    folders.push_back(std::string(xdg) + "/varnek/certs");
  } else if (const char* home = std::getenv("HOME"); home && *home) {
    folders.push_back(std::string(home) + "/.config/varnek/certs");
  }
  folders.emplace_back("/etc/varnek/certs");
  return folders;
}

CertificateFiles FindCertificate(const std::string& name, const std::vector<std::string>& folders) {
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
      name.find('\0') != std::string::npos) {
    FailCertificate(name, "not a file name");
  }
  std::string searched;
  for (const std::string& folder : folders) {
    const std::string base = folder + "/" + name;
    if (Exists(base + ".pem")) return {base + ".pem", base + ".key", false};
    if (Exists(base + ".p12")) return {base + ".p12", "", true};
    searched += (searched.empty() ? "" : ", ") + folder;
  }
  FailCertificate(name, "no " + name + ".pem or " + name + ".p12 in " + searched);
}

struct TlsContexts::Loaded {
  std::string stamp;
  TlsContext ctx;
};

TlsContexts::TlsContexts() = default;

TlsContexts::~TlsContexts() = default;

TlsContext TlsContexts::Server(TextView name) {
  const auto alias = aliases_.find(Text(name));
  const std::string file_name = alias != aliases_.end() ? alias->second : TextToUtf8(name);
  const CertificateFiles files = FindCertificate(file_name, CertificateFolders());
  const std::string stamp = FilesStamp(files);
  std::unique_ptr<Loaded>& slot = servers_[Text(name)];
  if (slot && slot->stamp == stamp) return slot->ctx;
  ERR_clear_error();
  auto loaded = std::make_unique<Loaded>();
  loaded->stamp = stamp;
  loaded->ctx = NewContext(TLS_server_method());
  if (!loaded->ctx) FailCertificate(file_name, "no TLS context (" + OpenSslReason() + ")");
  static const unsigned char kSessionContext[] = "varnek";
  SSL_CTX_set_session_id_context(loaded->ctx.get(), kSessionContext, sizeof kSessionContext - 1);
  if (files.p12) {
    LoadP12(loaded->ctx.get(), file_name, files);
  } else {
    LoadPem(loaded->ctx.get(), file_name, files);
  }
  if (SSL_CTX_check_private_key(loaded->ctx.get()) != 1) {
    FailCertificate(file_name,
                    (files.p12 ? "the key" : files.key) + " does not match " + files.chain);
  }
  slot = std::move(loaded);
  return slot->ctx;
}

TlsContext TlsContexts::Client() {
  if (client_) return client_;
  ERR_clear_error();
  TlsContext owned = NewContext(TLS_client_method());
  SSL_CTX* ctx = owned.get();
  if (!ctx) Fail(kSockErrCertificate, "no TLS context (" + OpenSslReason() + ")");
  const bool trusted = trusted_.empty()
                           ? SSL_CTX_set_default_verify_paths(ctx) == 1
                           : SSL_CTX_load_verify_locations(ctx, trusted_.c_str(), nullptr) == 1;
  if (!trusted) {
    Fail(kSockErrCertificate, "trusted certificates " +
                                  (trusted_.empty() ? "of the system" : trusted_) +
                                  " cannot be read (" + OpenSslReason() + ")");
  }
  SSL_CTX_set_verify(ctx, SSL_VERIFY_PEER, nullptr);
  client_ = std::move(owned);
  return client_;
}

void TlsContexts::AliasCertificate(TextView name, std::string file_name) {
  aliases_[Text(name)] = std::move(file_name);
}

void TlsContexts::SetTrustedCertificates(std::string pem_file) {
  trusted_ = std::move(pem_file);
  client_.reset();
}

}  // namespace varnek
