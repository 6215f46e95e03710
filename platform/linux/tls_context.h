// The secure channel's configurations (OpenSSL 3): one server context per
// certificate name and one client context, made at first use and shared by
// every socket of a factory.
//
// A certificate name N selects N.pem (certificate chain) with N.key (private
// key), or N.p12 (both, no pass phrase), in the first of these folders that
// holds N.pem or N.p12: $VARNEK_CERT_DIR, $XDG_CONFIG_HOME/varnek/certs
// (~/.config/varnek/certs when XDG_CONFIG_HOME is unset), /etc/varnek/certs.
// An installation may let a name stand for files of another name
// (AliasCertificate), since the server writes one fixed name on every slot.
// A missing or unreadable file, a key that does not match the certificate, or
// a key file that others may read fails with kSockErrCertificate and a text
// that says which file and why.
//
// Both roles speak TLS 1.2 and 1.3 only, with the system's default cipher
// lists; renegotiation is refused. The server takes ECDSA or RSA keys and
// issues session tickets. The client verifies its server against the
// system's CA store (or SetTrustedCertificates) and the host name it dialled.
//
//   TlsContexts tls;
//   auto server = tls.Server(u"VRNEK");   // raises RuntimeError on failure
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "varnek/platform/socket.h"
#include "varnek/runtime/text.h"

struct ssl_ctx_st;

namespace varnek {

// A context, kept alive by every connection that uses it.
using TlsContext = std::shared_ptr<ssl_ctx_st>;

// The files a certificate name stands for.
struct CertificateFiles {
  std::string chain;  // N.pem, or N.p12 when `p12`
  std::string key;    // N.key; "" for a .p12
  bool p12 = false;
};

// The folders searched for certificates, in order, from the environment now.
std::vector<std::string> CertificateFolders();

// The files of `name` in the first folder of `folders` that has them. Raises
// kSockErrCertificate when no folder does, or the name is not a file name.
CertificateFiles FindCertificate(const std::string& name, const std::vector<std::string>& folders);

class TlsContexts {
 public:
  TlsContexts();
  ~TlsContexts();
  TlsContexts(const TlsContexts&) = delete;
  TlsContexts& operator=(const TlsContexts&) = delete;

  // The server context of a certificate name, loaded again when its files
  // have changed since the last call. Raises kSockErrCertificate.
  TlsContext Server(TextView name);
  // The client context; raises kSockErrCertificate when the trust store
  // cannot be read.
  TlsContext Client();

  // Certificate files of `file_name` serve the name `name`.
  void AliasCertificate(TextView name, std::string file_name);
  // A PEM file of CA certificates trusted instead of the system's store
  // ("" again for the system's). Takes effect for connections made after.
  void SetTrustedCertificates(std::string pem_file);

 private:
  struct Loaded;
  std::map<Text, std::unique_ptr<Loaded>> servers_;
  std::map<Text, std::string> aliases_;
  std::string trusted_;
  TlsContext client_;
};

}  // namespace varnek
