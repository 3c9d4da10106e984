#include "state/state_file.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>

#include "log/zux_center_log.h"
#include "support/file.h"
#include "support/paths.h"

namespace {

constexpr char kUnit[] = "state";
constexpr std::chrono::seconds kLook{1};
constexpr mode_t kFolderMode = 0755;
constexpr mode_t kFileMode = 0640;

// Error texts may show rows of data: who may read the run log may read them here.
gid_t GroupOfReaders() {
  struct stat folder {};
  return stat(paths::kRunLogDir, &folder) == 0 ? folder.st_gid : getegid();
}

void Complain(const char* reason) {
  g_loger(kUnit, __LINE__, kAlarm, "state file %s not written: %s", paths::kStateFile, reason);
}

}  // namespace

// The thread gets no signals: the one that works must be woken by a stop.
StateFile::StateFile(const StateBoard& board, const ServiceFacts& facts,
                     std::function<void()> each_second)
    : m_board(board), m_facts(facts), m_each_second(std::move(each_second)) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    m_thread = std::thread([this] { Run(); });
  } catch (const std::system_error& error) {
    Complain(error.what());
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

StateFile::~StateFile() {
  if (!m_thread.joinable()) return;
  m_ends.release();
  m_thread.join();
  unlink(paths::kStateFile);
}

void StateFile::Run() {
  pthread_setname_np(pthread_self(), "state file");
  do {
    Keep();
    if (m_each_second) m_each_second();
  } while (!m_ends.try_acquire_for(kLook));
}

void StateFile::Keep() {
  const std::time_t now = std::time(nullptr);
  const StateBoard::Stamp stamp = m_board.StampAt(now);
  if (m_is_current && stamp == m_written) return;
  m_written = stamp;
  m_is_current = Write(StateText(m_facts, m_board, now));
  if (m_is_current) {
    m_told = false;
  } else if (!std::exchange(m_told, true)) {
    Complain(std::strerror(errno));
  }
}

bool StateFile::Write(const std::string& text) const {
  MakeFolders(paths::kStateFolder, kFolderMode);
  return ReplaceFile(paths::kStateFile, text, kFileMode, GroupOfReaders());
}
