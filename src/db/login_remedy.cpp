#include "db/login_remedy.h"

namespace {

struct Row {
  std::string_view words;  // the client library's, OpenSSL's below it, or the server's
  std::string_view remedy;
};

constexpr char kAnotherName[] =
    "its certificate is for another name: write host as the certificate has it, have one made for "
    "this host, or give its fingerprint as ssl-fp";
constexpr char kUntrusted[] =
    "its certificate is from an authority that is not trusted here: name the authority's file with "
    "ssl-ca, or give the certificate's fingerprint as ssl-fp";
constexpr char kTlsOnly[] =
    "the server takes this login over TLS only: see CLIENT OPTIONS in dbinfo.conf(5)";

// Said by a client library, or by a server that no longer has an older plug-in.
constexpr char kNoPlugin[] =
    "this user logs in by a plug-in that one side lacks: give the user another one (alter user ... "
    "identified with caching_sha2_password by '...' on MySQL, identified via mysql_native_password "
    "using password('...') on MariaDB)";

// The first that occurs counts. Releases of the library have words of their own for the same.
constexpr Row kRows[] = {
    {"server does not support it",
     "it was sent no login: give the server a certificate (ssl_cert, ssl_key), or do without TLS"},
    {"Validation of SSL server certificate failed", kAnotherName},
    {"Hostname verification failed", kAnotherName},
    {"expired",
     "renew the server's certificate and restart the server, or set this machine's clock"},
    {"not yet valid", "set the clock of this machine, or of the one that made the certificate"},
    {"self-signed certificate", kUntrusted},
    {"unable to get local issuer certificate", kUntrusted},
    {"certificate is not trusted", kUntrusted},
    {"Fingerprint v",
     "it has another certificate than the one of ssl-fp: see whether it was renewed, or whether "
     "somebody is in between"},
    {"ertificate revoked", "its certificate is on the list of ssl-crl: have a new one made"},
    {"no certificate or crl found", "ssl-ca, or ssl-crl, has none in it: see what the file is"},
    {"key values mismatch", "ssl-key is not the key of the certificate ssl-cert"},
    {"protocol version", "server and tls-version have no version in common"},
    {"no cipher match", "the library knows none of the ciphers of ssl-cipher"},
    {"handshake failure", "server and ssl-cipher have no cipher in common"},
    {"insecure transport", kTlsOnly},
    {"requires secure connection", kTlsOnly},
    {"could not be loaded", kNoPlugin},
    {"cannot be loaded", kNoPlugin},
    {"is not loaded", kNoPlugin},
};

}  // namespace

std::string_view LoginRemedy(std::string_view words, bool tls_was_spared) {
  for (const Row& row : kRows) {
    if (words.find(row.words) != std::string_view::npos) return row.remedy;
  }
  // Servers say the same of a wrong password and of a user that has to come over TLS.
  if (tls_was_spared && words.starts_with("Access denied for user") &&
      words.find("using password") != std::string_view::npos) {
    return "user or password is wrong, or the server takes this login over TLS only: see CLIENT "
           "OPTIONS in dbinfo.conf(5)";
  }
  return {};
}

std::pair<std::string, std::string> SplitRemedy(const std::string& words) {
  for (std::size_t at = words.find(kRemedyFollows); at != std::string::npos;
       at = words.find(kRemedyFollows, at + 1)) {
    const std::string before = words.substr(0, at);
    const std::string after = words.substr(at + kRemedyFollows.size());
    if (LoginRemedy(before, true) == after) return {before, after};
  }
  return {words, {}};
}
