// How long a thread waits for its MySQL server.
//
// The client library can be told to let a function of ours wait for its socket, and passes no word
// of which connection, or which statement, it waits for. So the object that says how patient to be
// is bound to the thread: it is made around calls of the library and holds until its scope ends.
#pragma once

#include <mysql.h>

#include <chrono>
#include <string>

// The innermost one of a thread counts.
class ServerWait {
 public:
  // For work, which may take hours: waits until the server answers or the connection breaks,
  // whatever the service is told meanwhile; with `ends_on_stop` a stop ends it as it ends a
  // question.
  explicit ServerWait(std::string& reason, bool ends_on_stop = false);
  // For a question: gives up when `limit` has passed since construction, and half a second after
  // the service was told to stop. An answer that is there already is always taken.
  //
  // `reason` gets a text for operators once the waiting is given up; it is emptied here. The
  // library ends the connection then.
  ServerWait(std::string& reason, std::chrono::milliseconds limit);
  ~ServerWait();
  ServerWait(const ServerWait&) = delete;
  ServerWait& operator=(const ServerWait&) = delete;

  // What the library calls (MARIADB_OPT_IO_WAIT): 1 once the socket can be read or written, 0 with
  // errno ETIMEDOUT when the waiting was given up, -1 with errno. The library's own time-out is not
  // looked at: on encrypted connections it passes seconds as milliseconds. Without an object of
  // this class it waits as for work.
  static int Wait(my_socket socket, my_bool for_reading, int timeout);

 private:
  using Clock = std::chrono::steady_clock;

  bool givesUp();

  std::string& m_reason;
  const bool m_isQuestion;
  const std::chrono::milliseconds m_limit;
  Clock::time_point m_end;
  bool m_stopSeen = false;
  ServerWait* const m_outer;
};
