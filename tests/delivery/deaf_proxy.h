// A network between the service and its server that fails in the middle of a conversation.
#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/file.h"

// Passes on what a client of 127.0.0.1 and the server there say to each other. Both sides are in
// the protocol's plain text: a packet is three bytes of length, a number and, of a statement, the
// byte 3 and its text.
class DeafProxy {
 public:
  explicit DeafProxy(int server_port) : m_server(AddressOf(server_port)) {
    sockaddr_in own = AddressOf(0);
    socklen_t size = sizeof own;
    m_listener.reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const bool listens =
        bind(m_listener.get(), reinterpret_cast<sockaddr*>(&own), size) == 0 &&
        listen(m_listener.get(), 8) == 0 &&
        getsockname(m_listener.get(), reinterpret_cast<sockaddr*>(&own), &size) == 0;
    m_port = listens ? ntohs(own.sin_port) : 0;
    m_thread = std::thread([this] { Run(); });
  }
  ~DeafProxy() {
    m_ends = true;
    m_thread.join();
  }
  DeafProxy(const DeafProxy&) = delete;
  DeafProxy& operator=(const DeafProxy&) = delete;

  int port() const { return m_port; }

  // From the nth statement that begins so on, its client hears nothing any more, although both ends
  // of its connection stay up. Others that connect later hear all.
  void SwallowAnswer(const std::string& statement, int nth = 1) {
    const std::lock_guard lock(m_mutex);
    m_swallowed = statement;
    m_countdown = nth;
  }
  // The same from the end of the nth load's bytes on.
  void SwallowEndOfLoad(int nth = 1) { SwallowAnswer(kEndOfLoad, nth); }
  // The answer to the next statement that begins so becomes a request for that file.
  void AskInstead(const std::string& statement, const std::string& path) {
    const std::lock_guard lock(m_mutex);
    m_asked_at = statement;
    m_asked_path = path;
  }
  // From now on what clients say reaches the server so much later. One waits for the other.
  void SetDistance(std::chrono::milliseconds distance) { m_distance = distance.count(); }
  // From now on a server that offers TLS seems not to, as somebody in between would have it.
  void HideTls() { m_hides_tls = true; }
  bool hasStruck() const { return m_struck; }
  // Statements, or texts of several of them, that clients have sent.
  int journeys() const { return m_journeys; }
  // All that clients said.
  std::string Heard() const {
    const std::lock_guard lock(m_mutex);
    return m_heard;
  }

 private:
  struct Connection {
    FileDescriptor client;
    FileDescriptor server;
    bool loads = false;
    bool deaf = false;
    bool asked = false;  // the next answer is to be a request for a file
    bool greeted = false;
  };
  static constexpr char kEndOfLoad[] = "end of load";

  static sockaddr_in AddressOf(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
  }

  void Run() {
    while (!m_ends) {
      std::vector<pollfd> waiting{{m_listener.get(), POLLIN, 0}};
      for (const Connection& one : m_connections) {
        waiting.push_back({one.client.get(), POLLIN, 0});
        waiting.push_back({one.server.get(), POLLIN, 0});
      }
      poll(waiting.data(), waiting.size(), 50);
      std::size_t at = 1;
      for (auto one = m_connections.begin(); one != m_connections.end(); at += 2) {
        const bool stays = (waiting[at].revents == 0 || PassOn(*one, true)) &&
                           (waiting[at + 1].revents == 0 || PassOn(*one, false));
        one = stays ? std::next(one) : m_connections.erase(one);
      }
      if (waiting[0].revents != 0) Accept();
    }
  }
  void Accept() {
    Connection& one = m_connections.emplace_back();
    one.client.reset(accept(m_listener.get(), nullptr, nullptr));
    one.server.reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(one.server.get(), reinterpret_cast<const sockaddr*>(&m_server), sizeof m_server) !=
        0) {
      m_connections.pop_back();
    }
  }
  // False when one side is gone; a deaf client learns nothing of that.
  bool PassOn(Connection& one, bool from_client) {
    char buffer[64 * 1024];
    const FileDescriptor& from = from_client ? one.client : one.server;
    const ssize_t size = read(from.get(), buffer, sizeof buffer);
    if (size <= 0) return !from_client && one.deaf && Silence(one);
    std::string text(buffer, static_cast<std::size_t>(size));
    if (from_client) Notice(one, text);
    if (from_client) std::this_thread::sleep_for(std::chrono::milliseconds(m_distance));
    if (!from_client && one.deaf) return true;
    if (!from_client && std::exchange(one.asked, false)) text = RequestFor(m_asked_path, text[3]);
    if (!from_client && !std::exchange(one.greeted, true) && m_hides_tls) WithoutTls(text);
    const FileDescriptor& to = from_client ? one.server : one.client;
    return send(to.get(), text.data(), text.size(), MSG_NOSIGNAL) == size || text.size() != 0;
  }
  // The server has ended the session of a deaf client, which is not told: an end that nobody reads.
  static bool Silence(Connection& one) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return false;
    one.server.reset(ends[0]);
    [[maybe_unused]] const int kept_open = ends[1];
    return true;
  }
  static std::string RequestFor(const std::string& path, char number) {
    std::string packet{static_cast<char>(path.size() + 1), 0, 0, number, '\xfb'};
    return packet + path;
  }
  // The server's first packet has its version, which a zero byte ends, the number of the session, 9
  // bytes for the password and then what it can do.
  static void WithoutTls(std::string& greeting) {
    constexpr char kTlsInSecondByte = 0x08;
    const std::size_t abilities = greeting.find('\0', 5) + 1 + 4 + 9;
    greeting.at(abilities + 1) &= static_cast<char>(~kTlsInSecondByte);
  }
  void Notice(Connection& one, const std::string& text) {
    const std::lock_guard lock(m_mutex);
    m_heard += text;
    const bool is_statement = text.size() > 5 && text[3] == 0 && text[4] == 3;
    const std::string statement = is_statement ? text.substr(5) : "";
    m_journeys += is_statement ? 1 : 0;
    const bool load_ends =
        one.loads && !is_statement && text.ends_with(std::string(3, '\0') + text.back());
    if (is_statement) one.loads = statement.find("load data local") != std::string::npos;
    if (!m_asked_at.empty() && statement.starts_with(m_asked_at)) {
      one.asked = true;
      m_asked_at.clear();
    }
    const bool is_it = m_swallowed == kEndOfLoad ? load_ends : statement.starts_with(m_swallowed);
    if (m_swallowed.empty() || (!is_statement && !load_ends) || !is_it || --m_countdown > 0) return;
    m_swallowed.clear();
    one.deaf = m_struck = true;
  }

  const sockaddr_in m_server;
  FileDescriptor m_listener;
  int m_port = 0;
  std::list<Connection> m_connections;
  mutable std::mutex m_mutex;
  std::string m_swallowed;
  int m_countdown = 0;
  std::string m_asked_at;
  std::string m_asked_path;
  std::string m_heard;
  std::atomic<bool> m_struck{false};
  std::atomic<int> m_journeys{0};
  std::atomic<long> m_distance{0};
  std::atomic<bool> m_hides_tls{false};
  std::atomic<bool> m_ends{false};
  std::thread m_thread;
};
