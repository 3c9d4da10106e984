// How long a thread waits for its MySQL server.
//
// The client library can be told to let a function of ours wait for its socket, and passes no word
// of which connection, or which statement, it waits for. So the object that says how patient to be
// is bound to the thread: it is made around calls of the library and holds until its scope ends.
#pragma once

#include <mysql.h>

#include <chrono>
#include <functional>
#include <string>

// How a connection waits, beyond the bounds of each single operation.
struct WaitPolicy {
  // A stop of the service ends work as it ends a question, and what is begun after it at once.
  bool ends_on_stop = false;
  // For how long a server that owes an answer may be silent before `may_come` is asked, and again
  // after each further silence of that length; 0: it is never asked.
  std::chrono::milliseconds silence{0};
  // Whether the answer may still come. Two "no" in a row, a tenth of the silence apart, end the
  // waiting: the answer itself may have been on its way during the first.
  std::function<bool()> may_come;
};

// The innermost one of a thread counts.
class ServerWait {
 public:
  // For work, which may take hours: waits until the server answers or the connection breaks,
  // whatever the service is told meanwhile, unless the policy says otherwise.
  explicit ServerWait(std::string& reason, const WaitPolicy& policy = kPatient);
  // For a question: gives up when `limit` has passed since construction, and half a second after
  // the service was told to stop. An answer that is there already is always taken.
  //
  // `reason` gets a text for operators once the waiting is given up; it is emptied here. The
  // library ends the connection then.
  ServerWait(std::string& reason, std::chrono::milliseconds limit,
             const WaitPolicy& policy = kPatient);
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

  static const WaitPolicy kPatient;

  ServerWait(std::string& reason, const WaitPolicy& policy, bool ends_on_stop);
  static short Awaited(my_socket socket, bool for_reading);
  bool givesUp();
  bool answerIsLost(Clock::time_point silent_since);

  std::string& m_reason;
  const WaitPolicy& m_policy;
  const bool m_endsOnStop;
  std::chrono::milliseconds m_limit{0};  // 0: none
  Clock::time_point m_end = Clock::time_point::max();
  Clock::time_point m_askedAt;  // `may_come`, the last time
  bool m_saidNo = false;        // to which it said no
  bool m_stopSeen = false;
  ServerWait* const m_outer;
};
