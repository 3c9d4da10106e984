// How to connect to a MySQL server, beyond address and login: what the group [midtable] of the
// option files says, by the names that MySQL's and MariaDB's client programs have for it.
//
// Encryption: any option whose name begins with "ssl" or "tls", but for those that switch it off,
// demands TLS. Then the server has to prove who it is before anything of the login is sent: its
// certificate must come from an authority of ssl-ca or ssl-capath, or of those that this machine
// trusts where neither is given, and must be for the host of the settings; or it must have the
// fingerprint ssl-fp. The client library by itself would speak to a server without TLS in the clear
// where it was told to use TLS and not told to verify. So there is no TLS without verification
// here, and whoever asks for that is refused. The local socket is the library's to decide, since
// nothing leaves the machine over it.
#pragma once

#include <mysql.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "config/dbinfo.h"
#include "config/option_files.h"

class ClientOptions {
 public:
  // Reads the group of `file` or, where that is empty, of the machine's option files, of which
  // those that are missing or cannot be read are passed over. False, with error() telling where and
  // why, when an option is unknown or cannot be followed, or when `file` has no such group: a
  // connection that is not quite as it was asked for must not be made. To be called once.
  bool Read(const std::string& file);
  const std::string& error() const { return m_error; }
  // Files that may have the group, and cannot be read.
  const std::vector<std::string>& unreadable() const { return m_files.unreadable(); }

  // Gives the handle all but address, login and time-outs. To be called before each connect: the
  // library forgets its options with every attempt that fails.
  void ApplyTo(MYSQL* handle) const;
  // Fills in host, port, user and password where the settings leave them out.
  void Complete(MYSQLAUTH& auth) const;

  // The socket file of a local server; null for the library's own.
  const char* socket() const { return m_socket.empty() ? nullptr : m_socket.c_str(); }
  bool DemandsTls() const;
  // The file of the client's private key; empty for none.
  std::string KeyFile() const;

  // How long a connect may take, and an answer to a question beside its wait for locks; and how
  // long the peer's system may leave unacknowledged what was sent.
  std::chrono::seconds connect_limit{10};
  std::chrono::seconds answer_limit{60};
  std::chrono::seconds unsent_limit{180};

 private:
  bool Refuse(const ClientOption& option, const std::string& why);
  bool Follow(const ClientOption& option);
  // Nothing for an option of another kind.
  std::optional<bool> FollowText(const ClientOption& option);
  std::optional<bool> FollowTlsText(const ClientOption& option);
  std::optional<bool> FollowFlag(const ClientOption& option);
  std::optional<bool> FollowNumber(const ClientOption& option);
  bool FollowMode(const ClientOption& option);
  bool FollowProtocol(const ClientOption& option);

  OptionFiles m_files;
  std::string m_error;
  std::string m_host, m_user, m_password, m_socket, m_bindAddress;
  unsigned int m_port = 0;      // 0: not given
  unsigned int m_protocol = 0;  // 0: the library's choice
  bool m_compress = false;
  std::optional<bool> m_tls;                    // as said by ssl or ssl-mode
  std::map<mysql_option, std::string> m_texts;  // what else is said about TLS
  bool m_verifies = false;                      // so does ssl-verify-server-cert
};
