#include "db/client_options.h"

#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "support/file.h"
#include "support/paths.h"

namespace {

constexpr unsigned int kMostSeconds = 86400;
constexpr unsigned int kLastPort = 65535;
constexpr char kUnverified[] =
    " is refused, since any server could pose as the right one: name the authority of its "
    "certificate with ssl-ca, or its fingerprint with ssl-fp";

struct TlsText {
  std::string_view name;
  mysql_option option;
  bool is_path;
};
constexpr TlsText kTlsTexts[] = {
    {"ssl-ca", MYSQL_OPT_SSL_CA, true},
    {"ssl-capath", MYSQL_OPT_SSL_CAPATH, true},
    {"ssl-cert", MYSQL_OPT_SSL_CERT, true},
    {"ssl-key", MYSQL_OPT_SSL_KEY, true},
    {"ssl-crl", MYSQL_OPT_SSL_CRL, true},
    {"ssl-crlpath", MYSQL_OPT_SSL_CRLPATH, true},
    {"ssl-cipher", MYSQL_OPT_SSL_CIPHER, false},
    {"ssl-fp", MARIADB_OPT_TLS_PEER_FP, false},
    {"tls-version", MARIADB_OPT_TLS_VERSION, false},
};

bool Same(const std::string& text, const char* other) {
  return strcasecmp(text.c_str(), other) == 0;
}

// An option without a value is on.
std::optional<bool> FlagOf(const std::optional<std::string>& value) {
  if (!value) return true;
  for (const char* const on : {"1", "on", "true", "yes"}) {
    if (Same(*value, on)) return true;
  }
  for (const char* const off : {"0", "off", "false", "no"}) {
    if (Same(*value, off)) return false;
  }
  return std::nullopt;
}

// 0 for anything but a number from 1 to `most`.
unsigned int NumberOf(const std::optional<std::string>& value, unsigned int most) {
  unsigned int number = 0;
  if (!value) return 0;
  const auto [end, error] = std::from_chars(value->data(), value->data() + value->size(), number);
  const bool whole = error == std::errc() && end == value->data() + value->size();
  return whole && number <= most ? number : 0;
}

// The library takes a list that it does not understand for "any version".
bool AreTlsVersions(const std::string& list) {
  for (std::size_t begin = 0; begin <= list.size();) {
    const std::size_t end = std::min(list.find(',', begin), list.size());
    const std::string version = list.substr(begin, end - begin);
    if (version != "TLSv1.2" && version != "TLSv1.3") return false;
    begin = end + 1;
  }
  return true;
}

// Of anything else the library would say that the server has another certificate.
bool IsFingerprint(std::string text) {
  std::erase(text, ':');
  return text.size() == 40 && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

// The library tells that a file is missing, and does not tell which.
bool IsReadable(const std::string& path) { return File(std::fopen(path.c_str(), "re")) != nullptr; }

}  // namespace

bool ClientOptions::Read(const std::string& file) {
  if (file.empty()) {
    for (const char* const usual : paths::kOptionFiles) m_files.ReadIfThere(usual);
  } else if (!m_files.Read(file)) {
    m_error = "client_options " + file + ": " + std::strerror(errno);
    return false;
  } else if (!unreadable().empty()) {
    m_error = "client_options " + file + " includes " + unreadable().front();
    return false;
  } else if (!m_files.found()) {
    m_error = "client_options " + file + " has no group [" + std::string(OptionFiles::kGroup) +
              "], and no other is read";
    return false;
  }
  const auto& options = m_files.options();
  return std::all_of(options.begin(), options.end(),
                     [this](const ClientOption& option) { return Follow(option); });
}

// The value is left out: it may be a password.
bool ClientOptions::Refuse(const ClientOption& option, const std::string& why) {
  m_error = option.where + ": option " + option.name + why;
  return false;
}

bool ClientOptions::Follow(const ClientOption& option) {
  if (option.name == "ssl-mode") return FollowMode(option);
  if (option.name == "protocol") return FollowProtocol(option);
  for (const auto follow : {&ClientOptions::FollowText, &ClientOptions::FollowTlsText,
                            &ClientOptions::FollowFlag, &ClientOptions::FollowNumber}) {
    if (const auto followed = (this->*follow)(option)) return *followed;
  }
  return Refuse(option, " is not known here: see CLIENT OPTIONS in dbinfo.conf(5)");
}

std::optional<bool> ClientOptions::FollowText(const ClientOption& option) {
  const std::pair<std::string_view, std::string*> texts[] = {{"host", &m_host},
                                                             {"user", &m_user},
                                                             {"password", &m_password},
                                                             {"socket", &m_socket},
                                                             {"bind-address", &m_bindAddress}};
  for (const auto& [name, text] : texts) {
    if (option.name != name) continue;
    if (!option.value) return Refuse(option, " needs a value");
    *text = *option.value;
    return true;
  }
  return std::nullopt;
}

std::optional<bool> ClientOptions::FollowTlsText(const ClientOption& option) {
  const auto text = std::find_if(std::begin(kTlsTexts), std::end(kTlsTexts),
                                 [&](const TlsText& each) { return each.name == option.name; });
  if (text == std::end(kTlsTexts)) return std::nullopt;
  const std::string value = option.value.value_or("");
  if (value.empty()) return Refuse(option, " needs a value");
  if (text->is_path && !IsReadable(value)) {
    return Refuse(option, ": " + value + ": " + std::strerror(errno));
  }
  if (text->option == MARIADB_OPT_TLS_VERSION && !AreTlsVersions(value)) {
    return Refuse(option, " takes TLSv1.2, TLSv1.3, or both with a comma between");
  }
  if (text->option == MARIADB_OPT_TLS_PEER_FP && !IsFingerprint(value)) {
    return Refuse(option, " takes the 40 hexadecimal digits of a SHA-1 fingerprint");
  }
  m_texts[text->option] = value;
  return true;
}

// "skip-ssl" and "disable-ssl" are "ssl=0".
std::optional<bool> ClientOptions::FollowFlag(const ClientOption& option) {
  std::string_view name = option.name;
  bool negated = false;
  for (const std::string_view prefix : {"skip-", "disable-"}) {
    if (!name.starts_with(prefix)) continue;
    name.remove_prefix(prefix.size());
    negated = true;
  }
  if (name != "ssl" && name != "ssl-verify-server-cert" && name != "compress") return std::nullopt;
  std::optional<bool> flag = FlagOf(option.value);
  if (!flag || (negated && option.value)) return Refuse(option, " takes 1 or 0, or no value");
  if (negated) flag = false;
  if (name == "compress") m_compress = *flag;
  if (name == "ssl") m_tls = flag;
  if (name != "ssl-verify-server-cert") return true;
  m_verifies = true;
  return *flag || Refuse(option, negated ? kUnverified : std::string("=0") + kUnverified);
}

std::optional<bool> ClientOptions::FollowNumber(const ClientOption& option) {
  const std::pair<std::string_view, std::chrono::seconds*> limits[] = {
      {"connect-timeout", &connect_limit},
      {"read-timeout", &answer_limit},
      {"write-timeout", &unsent_limit}};
  const auto limit = std::find_if(std::begin(limits), std::end(limits),
                                  [&](const auto& each) { return each.first == option.name; });
  const bool is_limit = limit != std::end(limits);
  if (!is_limit && option.name != "port") return std::nullopt;
  const unsigned int most = is_limit ? kMostSeconds : kLastPort;
  const unsigned int number = NumberOf(option.value, most);
  if (number == 0) return Refuse(option, " takes a number from 1 to " + std::to_string(most));
  if (is_limit) {
    *limit->second = std::chrono::seconds(number);
  } else {
    m_port = number;
  }
  return true;
}

// The client programs of MySQL take any certificate with REQUIRED, and any name with VERIFY_CA.
// Here both mean VERIFY_IDENTITY, so that nobody gets less than was asked for.
bool ClientOptions::FollowMode(const ClientOption& option) {
  const std::string mode = option.value.value_or("");
  m_tls = Same(mode, "REQUIRED") || Same(mode, "VERIFY_CA") || Same(mode, "VERIFY_IDENTITY");
  return *m_tls || Same(mode, "DISABLED") || Refuse(option, " takes VERIFY_IDENTITY or DISABLED");
}

bool ClientOptions::FollowProtocol(const ClientOption& option) {
  const std::string protocol = option.value.value_or("");
  if (Same(protocol, "tcp")) {
    m_protocol = MYSQL_PROTOCOL_TCP;
  } else if (Same(protocol, "socket")) {
    m_protocol = MYSQL_PROTOCOL_SOCKET;
  } else {
    return Refuse(option, " takes tcp or socket");
  }
  return true;
}

bool ClientOptions::DemandsTls() const { return m_tls.value_or(m_verifies || !m_texts.empty()); }

std::string ClientOptions::KeyFile() const {
  const auto key = m_texts.find(MYSQL_OPT_SSL_KEY);
  return key == m_texts.end() ? std::string() : key->second;
}

void ClientOptions::ApplyTo(MYSQL* handle) const {
  if (m_compress) mysql_optionsv(handle, MYSQL_OPT_COMPRESS, nullptr);
  if (m_protocol != 0) mysql_optionsv(handle, MYSQL_OPT_PROTOCOL, &m_protocol);
  if (!m_bindAddress.empty()) mysql_optionsv(handle, MYSQL_OPT_BIND, m_bindAddress.c_str());
  // Newer libraries use TLS by themselves, which is theirs to decide where nothing was said.
  if (!DemandsTls() && !m_tls) return;
  const my_bool on = DemandsTls() ? 1 : 0;
  mysql_optionsv(handle, MYSQL_OPT_SSL_ENFORCE, &on);
  // With a fingerprint it stays unsaid: where it is said, older libraries want the name and the
  // authority beside it, and newer ones do not compare the fingerprint when it is off.
  const bool pinned = on != 0 && m_texts.count(MARIADB_OPT_TLS_PEER_FP) != 0;
  if (!pinned) mysql_optionsv(handle, MYSQL_OPT_SSL_VERIFY_SERVER_CERT, &on);
  if (on == 0) return;
  for (const auto& [option, text] : m_texts) mysql_optionsv(handle, option, text.c_str());
  // Newer libraries would let a server that knows the password be its own witness.
  if (!pinned && m_texts.count(MYSQL_OPT_SSL_CA) == 0 && m_texts.count(MYSQL_OPT_SSL_CAPATH) == 0) {
    mysql_optionsv(handle, MYSQL_OPT_SSL_CAPATH, paths::kAuthorities);
  }
}

void ClientOptions::Complete(MYSQLAUTH& auth) const {
  if (auth.host.empty()) auth.host = m_host;
  if (auth.user.empty()) auth.user = m_user;
  if (auth.password.empty()) auth.password = m_password;
  if (auth.port <= 0 && m_port != 0) auth.port = static_cast<int>(m_port);
}
