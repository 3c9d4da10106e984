// Copies a mem file, appending to every record whether its user is local.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

#include "localuser/tourlocaluser.h"
#include "log/zux_center_log.h"
#include "support/file.h"

namespace {

constexpr auto kUnit = TourLocalUser::kUnit;

// One rewriting: the two files, and what became of the records.
class Rewriting {
 public:
  Rewriting(const std::string& in_path, const std::string& out_path, FlaggedRecords::FlagOf flag_of)
      : m_in_path(in_path), m_out_path(out_path), m_flag_of(std::move(flag_of)) {}

  // Makes the copy. False after logging what failed; the copy is then not to be used.
  bool Run() {
    // Where there is no file there is no row to lose: the copy is empty.
    if (!OpenInput()) return m_missing && CreateOutput() && CloseOutput();
    return CreateOutput() && CopyRecords() && CloseOutput();
  }

  // Removes what Run() left.
  void Discard() {
    if (unlink(m_out_path.c_str()) != 0 && errno != ENOENT) Fail("remove", m_out_path);
  }

  const FlagCounts& counts() const { return m_counts; }

 private:
  bool Fail(const char* what, const std::string& path) const {
    const int error = errno;
    g_loger(kUnit, __LINE__, kError, "cannot %s %s, errno %d (%s)", what, path.c_str(), error,
            std::generic_category().message(error).c_str());
    return false;
  }

  bool OpenInput();
  bool CreateOutput();
  bool CopyRecords();
  bool WriteRecord(std::string_view record);
  bool CloseOutput();

  const std::string& m_in_path;
  const std::string& m_out_path;
  const FlaggedRecords::FlagOf m_flag_of;
  FileDescriptor m_in;
  FileDescriptor m_out;
  struct stat m_status {};
  bool m_missing = false;
  FlagCounts m_counts;
};

bool Rewriting::OpenInput() {
  m_in = OpenRegular(m_in_path, m_status);
  m_missing = !m_in && errno == ENOENT;
  return m_in || Fail("read", m_in_path);
}

bool Rewriting::CreateOutput() {
  // Removed rather than truncated: whatever has that name (a link, a FIFO) is not written through.
  if (unlink(m_out_path.c_str()) != 0 && errno != ENOENT) return Fail("replace", m_out_path);
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  m_out.reset(open(m_out_path.c_str(), kFlags, S_IRUSR | S_IWUSR));
  if (!m_out) return Fail("create", m_out_path);
  if (m_missing) return true;
  // The database server must be able to read the copy if it can read the original. Only root may
  // give the owner; without it the mode has to do.
  [[maybe_unused]] const int ignored = fchown(m_out.get(), m_status.st_uid, m_status.st_gid);
  constexpr mode_t kPermissions = S_IRWXU | S_IRWXG | S_IRWXO;
  if (fchmod(m_out.get(), m_status.st_mode & kPermissions) != 0) {
    return Fail("set the mode of", m_out_path);
  }
  return true;
}

bool Rewriting::CopyRecords() {
  FlaggedRecords records(m_in.get(), m_in_path, m_flag_of);
  std::string_view record;
  auto result = records.Next(record);
  for (; result == FlaggedRecords::Result::kRecord; result = records.Next(record)) {
    if (!WriteRecord(record)) break;
  }
  m_counts = records.counts();
  if (result == FlaggedRecords::Result::kFailed) return Fail("read", m_in_path);
  return result == FlaggedRecords::Result::kEnd;
}

// One write a record; the loop only goes round when the kernel took a part of the record.
bool Rewriting::WriteRecord(std::string_view record) {
  while (!record.empty()) {
    const ssize_t written = write(m_out.get(), record.data(), record.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return Fail("write", m_out_path);
    record.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool Rewriting::CloseOutput() {
  // A late write error shows here and nowhere else.
  return close(m_out.release()) == 0 || Fail("write", m_out_path);
}

// isLocalUser(GetUserName(code)), without the texts.
bool IsLocalCode(const BlockSet& blocks, std::uint32_t code) {
  // The name is two digits of prefix and the rest in nine digits, or in ten where it needs them:
  // the first five of the rest complete the block.
  const std::uint32_t rest = code & 0x3FFFFFFF;
  const std::uint32_t leading = rest <= 999'999'999 ? rest / 10'000 : rest / 100'000;
  const auto prefix = static_cast<std::uint32_t>(TourLocalUser::kPrefixes.at(code >> 30));
  return blocks.containsBlock(prefix * 100'000 + leading);
}

LocalFlag FlagBy(const BlockSet& blocks, std::uint32_t code) {
  if (code == 0) return LocalFlag::kNoUser;
  return IsLocalCode(blocks, code) ? LocalFlag::kLocal : LocalFlag::kVisitor;
}

}  // namespace

LocalFlag TourLocalUser::FlagOf(std::uint32_t code) {
  {
    // The enterprise users do not change the flag; they are looked up all the same.
    MutexLock lock(m_enterpriseLock);
    [[maybe_unused]] const auto ignored = m_mapEnterpriseUser.find(code);
  }
  return FlagBy(*Blocks(), code);
}

FlaggedRecords::FlagOf TourLocalUser::Flags() const {
  return [blocks = Blocks()](std::uint32_t code) { return FlagBy(*blocks, code); };
}

int TourLocalUser::ParseMemfile(const std::string& in_path, const std::string& out_path) {
  g_loger(kUnit, __LINE__, kConsole, "+++++++++++\n");
  Rewriting rewriting(in_path, out_path, [this](std::uint32_t code) { return FlagOf(code); });
  if (rewriting.Run()) {
    rewriting.counts().Log(in_path);
  } else {
    rewriting.Discard();
  }
  m_lostLines = rewriting.counts().lost;
  g_loger(kUnit, __LINE__, kInfo, "ParseMemfile finished");
  return 1;
}
