// The secure channel on 127.0.0.1 with certificates made by openssl for the
// suite: curl and Python's ssl against a secure server (GET, POST, a crowd,
// a large POST), old protocols refused, broken clients that free only their
// own slot, certificates that cannot serve, and the client role.
#include <openssl/ssl.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "tests/integration/e2e_support.h"
#include "varnek/platform/linux/linux_socket.h"
#include "varnek/platform/linux/tls_context.h"

namespace varnek {
namespace {
using namespace e2e;
namespace fs = std::filesystem;

// GETs or POSTs from `clients` threads at once; prints how many got a 200 and
// the body of the first answer (or its start, when it has none).
constexpr char kPythonClient[] = R"(import socket, ssl, sys, threading
port, ca, n, path, size = int(sys.argv[1]), sys.argv[2], int(sys.argv[3]), sys.argv[4], int(sys.argv[5])
context = ssl.create_default_context(cafile=ca)
answers = [b""] * n
def one(i):
    try:
        with context.wrap_socket(socket.create_connection(("127.0.0.1", port), timeout=40),
                                 server_hostname="localhost") as s:
            if size:
                s.sendall(b"POST %s HTTP/1.0\r\nContent-Length: %d\r\n\r\na=" % (path.encode(), size)
                          + b"x" * (size - 2))
            else:
                s.sendall(b"GET %s HTTP/1.0\r\n\r\n" % path.encode())
            while chunk := s.recv(65536):
                answers[i] += chunk
    except Exception as e:
        answers[i] = repr(e).encode()
threads = [threading.Thread(target=one, args=(i,)) for i in range(n)]
for t in threads: t.start()
for t in threads: t.join()
print("ok %d of %d" % (sum(a.startswith(b"HTTP/1.0 200") for a in answers), n))
print(answers[0].partition(b"\r\n\r\n")[2].decode(errors="replace") or answers[0][:200])
)";

// One folder per kind of certificate, each holding VRNEK.* as named.
class TlsTest : public ServerE2ETest {
 protected:
  static void SetUpTestSuite() {
    root_ = fs::temp_directory_path() / ("varnek-tls-" + std::to_string(getpid()));
    const auto make = [](const std::string& folder, const std::string& key_type) {
      fs::create_directories(root_ / folder);
      const std::string base = (root_ / folder / "VRNEK").string();
      RunCommand("openssl req -x509 -newkey " + key_type +
                     " -nodes -days 2 -subj /CN=localhost"
                     " -addext subjectAltName=DNS:localhost -keyout " +
                     base + ".key -out " + base + ".pem 2>/dev/null",
                 30.0);
      chmod((base + ".key").c_str(), 0600);
      return base;
    };
    const std::string ec = make("ec", "ec -pkeyopt ec_paramgen_curve:P-256");
    const std::string rsa = make("rsa", "rsa:2048");
    fs::create_directories(root_ / "p12");
    RunCommand("openssl pkcs12 -export -passout pass: -in " + ec + ".pem -inkey " + ec +
                   ".key -out " + (root_ / "p12" / "VRNEK.p12").string(),
               30.0);
    fs::create_directories(root_ / "mismatch");
    fs::copy_file(ec + ".pem", root_ / "mismatch" / "VRNEK.pem");
    fs::copy_file(rsa + ".key", root_ / "mismatch" / "VRNEK.key");
    const std::string open = make("open", "ec -pkeyopt ec_paramgen_curve:P-256");
    chmod((open + ".key").c_str(), 0644);
    fs::create_directories(root_ / "no-key");
    fs::copy_file(ec + ".pem", root_ / "no-key" / "VRNEK.pem");
    fs::create_directories(root_ / "empty");
    std::ofstream(root_ / "client.py") << kPythonClient;
  }
  static void TearDownTestSuite() { fs::remove_all(root_); }
  void TearDown() override { unsetenv("VARNEK_CERT_DIR"); }

  static std::string Path(const std::string& name) { return (root_ / name).string(); }
  static std::string CaFile() { return Path("ec/VRNEK.pem"); }

  void StartSecure(const std::string& folder, int32_t slots = 3) {
    setenv("VARNEK_CERT_DIR", Path(folder).c_str(), 1);
    server.ServerSecure(true);
    Start(slots);
  }
  // Stops, lets the last answers' handlers finish their 1 s pause, starts
  // again: a handler of the old run still pausing would close the connection
  // its slot number has taken in the new run.
  void Restart(const std::string& folder) {
    server.ServerOpen(false);
    PumpFor(server.loop(), 1.5);
    StartSecure(folder);
  }
  std::string Url(const std::string& path) const {
    return "https://localhost:" + std::to_string(port) + path;
  }
  std::string Python(int clients, const std::string& path, int post_size, double seconds) {
    return RunClientWhilePumping(
        server.loop(),
        [&] {
          return RunCommand("python3 " + Path("client.py") + " " + std::to_string(port) + " " +
                                CaFile() + " " + std::to_string(clients) + " " + path + " " +
                                std::to_string(post_size),
                            seconds);
        },
        seconds + 5);
  }
  // Pumps until only `open` slots are taken, at most 3 s; whether it came.
  bool SlotsSettleAt(int open) {
    return PumpUntilFor(
        server.loop(), [&] { return server.CurrentConnections() == open; }, 3.0);
  }

  static fs::path root_;
};

fs::path TlsTest::root_;

TEST_F(TlsTest, CurlAndPythonGetAndPostOverEcdsaAndRsa) {
  for (const char* folder : {"rsa", "ec"}) {
    SCOPED_TRACE(folder);
    Restart(folder);
    const std::string ca = Path(std::string(folder) + "/VRNEK.pem");
    EXPECT_EQ(Command("curl -sS --cacert " + ca + " " + Url("/hello") + " 2>&1"), "hello");
    EXPECT_EQ(Command("curl -s --cacert " + ca + " -d a=1 " + Url("/form")), "a=[1]\n");
    EXPECT_EQ(Command("curl -s -o /dev/null -w '%{http_code}' " + Url("/hello")), "000")
        << "an untrusted certificate is refused";
  }
  Restart("ec");
  EXPECT_EQ(Python(1, "/hello", 0, 15), "ok 1 of 1\nhello\n");
}

TEST_F(TlsTest, HundredClientsAtOnceAndA100KBPostWhole) {
  AnswerPostLength();
  StartSecure("ec", 110);
  EXPECT_EQ(Python(100, "/hello", 0, 60), "ok 100 of 100\nhello\n");
  const std::string head = "POST /big HTTP/1.0\r\nContent-Length: 102400\r\n\r\n";
  EXPECT_EQ(Python(1, "/big", 102400, 30),
            "ok 1 of 1\n" + std::string("length ") + std::to_string(head.size() + 102400) + "\n");
}

TEST_F(TlsTest, OnlyTls12And13AreSpoken) {
  server.ServerWelcomeString("welcome!");  // queued before the handshake, sent after it
  StartSecure("ec");
  // Reads what comes for 1.5 s (the welcome comes 1 s after the connection).
  const auto handshake = [&](const std::string& version) {
    return Command("sh -c '(sleep 1.5) | openssl s_client -connect 127.0.0.1:" +
                   std::to_string(port) + " -" + version + " -cipher DEFAULT@SECLEVEL=0 2>&1'");
  };
  for (const char* old : {"tls1", "tls1_1"}) {
    const std::string out = handshake(old);
    EXPECT_EQ(out.find("BEGIN CERTIFICATE"), std::string::npos) << old << ":\n" << out;
    EXPECT_NE(out.find("alert protocol version"), std::string::npos) << old << ":\n" << out;
  }
  for (const char* version : {"tls1_2", "tls1_3"}) {
    const std::string out = handshake(version);
    EXPECT_NE(out.find(std::string("Protocol  : TLSv1.") + version[5]), std::string::npos) << out;
    EXPECT_NE(out.find("welcome!"), std::string::npos) << out;
  }
}

// A ClientHello as OpenSSL's client writes it.
std::string ClientHello() {
  SSL_CTX* context = SSL_CTX_new(TLS_client_method());
  SSL* ssl = SSL_new(context);
  BIO* in = BIO_new(BIO_s_mem());
  BIO* out = BIO_new(BIO_s_mem());
  SSL_set_bio(ssl, in, out);
  SSL_set_connect_state(ssl);
  SSL_do_handshake(ssl);
  char* data = nullptr;
  const long size = BIO_get_mem_data(out, &data);
  std::string hello(data, static_cast<size_t>(size));
  SSL_free(ssl);
  SSL_CTX_free(context);
  return hello;
}

TEST_F(TlsTest, BrokenClientsFreeTheirOwnSlotOnly) {
  StartSecure("ec", 10);
  // A good client holds its connection, handshake done, through all of it.
  LoopbackClient good;
  SSL_CTX* context = SSL_CTX_new(TLS_client_method());
  SSL_CTX_load_verify_locations(context, CaFile().c_str(), nullptr);
  SSL* ssl = SSL_new(context);
  // A blocking handshake on `client`, each read bounded.
  const auto handshake = [&](LoopbackClient& client, SSL* session) {
    const timeval limit{10, 0};
    if (!client.Connect(port)) return -1;
    setsockopt(client.fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    SSL_set_fd(session, client.fd);
    return SSL_connect(session);
  };
  ASSERT_EQ(RunClientWhilePumping(server.loop(), [&] { return handshake(good, ssl); }), 1);
  ASSERT_TRUE(SlotsSettleAt(1));

  // Clients that leave as soon as their handshake is done, before the
  // server's tickets: writing those to a closed socket must not end the host.
  const int quick = RunClientWhilePumping(server.loop(), [&] {
    int finished = 0;
    for (int k = 0; k < 5; ++k) {
      LoopbackClient leaving;
      SSL* s = SSL_new(context);
      if (handshake(leaving, s) == 1) ++finished;
      SSL_free(s);
    }
    return finished;
  });
  EXPECT_EQ(quick, 5);
  EXPECT_TRUE(SlotsSettleAt(1));

  const std::string hello = ClientHello();
  struct Case {
    const char* name;
    std::string bytes;
    bool half_close;      // then stops sending
    bool leave_at_once;   // closes without waiting for the server
    bool alert_expected;  // the server's answer is a fatal alert record
  } cases[] = {
      {"garbage", std::string(300, '\x5a'), false, false, true},
      {"plain request", "GET /hello HTTP/1.0\r\n\r\n", false, false, true},
      {"truncated hello", hello.substr(0, hello.size() / 2), true, false, false},
      {"stops mid-handshake", hello, false, true, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string answer = RunClientWhilePumping(server.loop(), [&] {
      LoopbackClient bad(port);
      if (!bad.Send(c.bytes)) return std::string("no connect");
      if (c.half_close) bad.ShutdownWrite();
      // the server's hello
      if (c.leave_at_once) return bad.ReadUntil("\x16\x03\x03", 5.0).substr(0, 3);
      std::string got = bad.ReadAll(5.0);
      return bad.PeerClosed() ? got : "still open: " + got;
    });
    if (c.alert_expected) {
      ASSERT_GE(answer.size(), 7u) << answer;
      EXPECT_EQ(answer[0], '\x15');  // an alert record
      EXPECT_EQ(answer[5], '\x02');  // fatal
    } else if (c.leave_at_once) {
      EXPECT_EQ(answer, "\x16\x03\x03");
    } else {
      EXPECT_EQ(answer.rfind("still open", 0), std::string::npos) << answer;
    }
    EXPECT_TRUE(SlotsSettleAt(1)) << server.CurrentConnections() << " slots taken";
  }

  const std::string page = RunClientWhilePumping(server.loop(), [&] {
    SSL_write(ssl, kGetHello.data(), static_cast<int>(kGetHello.size()));
    std::string got;
    char buf[4096];
    for (int n; (n = SSL_read(ssl, buf, sizeof buf)) > 0;) got.append(buf, static_cast<size_t>(n));
    return got;
  });
  EXPECT_NE(page.find("\r\n\r\nhello"), std::string::npos) << page;
  SSL_free(ssl);
  SSL_CTX_free(context);
}

TEST_F(TlsTest, CertificateThatCannotServeStopsTheStartWithItsReason) {
  const struct {
    const char* folder;
    const char* reason;
  } cases[] = {
      {"empty", "certificate VRNEK: no VRNEK.pem or VRNEK.p12 in "},
      {"no-key", "no-key/VRNEK.key (No such file or directory)"},
      {"mismatch", "mismatch/VRNEK.key does not match "},
      {"open", "is open to others (mode 0644)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.folder);
    reports.clear();
    setenv("VARNEK_CERT_DIR", Path(c.folder).c_str(), 1);
    server.ServerSecure(true);
    server.ServerPort(RandomServerPort());
    server.ServerOpen(true);
    EXPECT_FALSE(server.ServerOpen());
    ASSERT_GE(reports.size(), 4u);
    const std::vector<std::string> tail(reports.end() - 4, reports.end());  // Stop reports nothing
    EXPECT_EQ(tail[0], "Init - Error cargando motores");
    EXPECT_EQ(tail[1], "Init - Deteniendo server");
    EXPECT_EQ(tail[2], "Init - Cerrando socket de escucha");
    EXPECT_EQ(tail[3].rfind("Init - Error de certificado: certificate VRNEK: ", 0), 0u) << tail[3];
    EXPECT_NE(tail[3].find(c.reason), std::string::npos) << tail[3];
  }
  // The same start with a usable certificate serves, from a .p12 too.
  StartSecure("p12");
  EXPECT_EQ(Command("curl -s --cacert " + CaFile() + " " + Url("/hello")), "hello");
}

TEST_F(TlsTest, ClientRoleVerifiesTheServerAndItsName) {
  StartSecure("ec");
  auto& factory = static_cast<LinuxSocketFactory&>(*LinuxPlatform().sockets);
  const auto fetch = [&](const char* host, std::string* error) {
    auto client = factory.Create();
    client->SetSecureClient(true);
    Text got;
    bool connected = false;
    client->on_done = [&](int32_t op) {
      if (op == kOpConnect) {
        connected = true;
        client->Send(Variant(Utf8ToText(kGetHello)));
      }
    };
    client->on_receive_ready = [&] { got += client->ReceiveText(); };
    client->Connect(Variant(Utf8ToText(host)), Variant::Long(port));
    PumpUntilFor(
        server.loop(),
        [&] { return client->State() == kSocketClosed || client->State() == kSocketClosing; }, 5.0);
    if (client->State() == kSocketClosing) got += client->ReceiveText();
    *error = TextToUtf8(client->ErrorText());
    return connected ? TextToUtf8(got) : std::string("not connected");
  };
  std::string error;
  factory.tls().SetTrustedCertificates(CaFile());
  EXPECT_NE(fetch("localhost", &error).find("\r\n\r\nhello"), std::string::npos) << error;
  EXPECT_EQ(fetch("127.0.0.1", &error), "not connected");
  EXPECT_NE(error.find("certificate verify failed (IP address mismatch)"), std::string::npos)
      << error;
  factory.tls().SetTrustedCertificates("");  // the system's store knows nothing of ours
  EXPECT_EQ(fetch("localhost", &error), "not connected");
  EXPECT_NE(error.find("self-signed certificate"), std::string::npos) << error;
}

}  // namespace
}  // namespace varnek
