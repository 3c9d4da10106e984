#include "midtablectl/setup/plan.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "log/zux_center_log.h"
#include "midtablectl/advice.h"
#include "midtablectl/text.h"
#include "spool/renames.h"
#include "support/file.h"

namespace ctl {

namespace {

constexpr char kMask[] = "********";

std::string Replaced(std::string text, const std::string& part, const std::string& by) {
  for (std::size_t at = text.find(part); at != std::string::npos;
       at = text.find(part, at + by.size())) {
    text.replace(at, part.size(), by);
  }
  return text;
}

std::string ErrorText(const std::string& path, int error) {
  std::string text = OneLine(path) + ": " + std::strerror(error);
  if (error == EEXIST) return text + " -> somebody else made it: run this again";
  if (error == EROFS) return text + " -> mount it for writing";
  if (error == ENOSPC) return text + " -> make room";
  return text + (geteuid() == 0 ? " -> mend what stands there" : " -> run this as root");
}

// The folder that a path lies in, without a slash at its end; "/" for the root.
std::string Parent(std::string path) {
  if (path.ends_with('/')) path.pop_back();
  const std::size_t slash = path.rfind('/');
  return slash == 0 ? "/" : path.substr(0, slash);
}

// The last folder on the way to `path` that is there.
std::string NearestFolder(std::string path) {
  struct stat status {};
  do {
    path = Parent(path);
  } while (path != "/" && stat(path.c_str(), &status) != 0 && errno == ENOENT);
  return path;
}

// An empty text, or why the folder is not there as it should be.
std::string MakeFolder(const Step& step) {
  constexpr mode_t kOfParents = 0755;
  std::string path = step.path;
  if (path.ends_with('/')) path.pop_back();
  MakeFolders(Parent(path), kOfParents);
  if (mkdir(path.c_str(), 0700) != 0) return ErrorText(path, errno);
  const FileDescriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  // The mode comes last, because a change of the owner may take bits of it away.
  if (!folder || fchown(folder.get(), step.owner, step.group) != 0 ||
      fchmod(folder.get(), step.mode) != 0) {
    return ErrorText(path, errno);
  }
  return {};
}

bool WriteAll(int fd, std::string_view content) {
  while (!content.empty()) {
    const ssize_t size = write(fd, content.data(), content.size());
    if (size < 0 && errno != EINTR) return false;
    if (size > 0) content.remove_prefix(static_cast<std::size_t>(size));
  }
  return fsync(fd) == 0;
}

// The file is written under another name, which is nobody else's, and then gets its own.
std::string MakeFile(const Step& step) {
  constexpr mode_t kOfParents = 0755;
  MakeFolders(Parent(step.path), kOfParents);
  const std::string temporary = step.path + ".setup-" + std::to_string(getpid());
  FileDescriptor file(
      open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file) return ErrorText(temporary, errno);
  const bool written = fchmod(file.get(), step.mode) == 0 && WriteAll(file.get(), step.Real()) &&
                       close(file.release()) == 0 && RenameToFreeName(temporary, step.path);
  const int error = errno;
  if (written) return {};
  unlink(temporary.c_str());
  return ErrorText(step.path, error);
}

std::string Execute(const Step& step, Server& server) {
  std::string words = server.Run(step.Real());
  if (words.empty()) return {};
  // A server may repeat what it refuses.
  if (!step.secret.empty()) words = Replaced(words, step.secret, kMask);
  std::string advice = ServerAdvice(words);
  if (words.find("denied") != std::string::npos) {
    advice =
        "this login may not do that: take an administrator, with --admin-user or "
        "--admin-defaults-file";
  }
  return "\"" + OneLine(step.Shown().substr(0, 100)) + "\" fails: " + OneLine(words) + " -> " +
         (advice.empty() ? "see the server's error log" : advice);
}

std::string Do(const Step& step, Server& server) {
  switch (step.kind) {
    case Step::Kind::kFolder:
      return MakeFolder(step);
    case Step::Kind::kFile:
      return MakeFile(step);
    default:
      return Execute(step, server);
  }
}

void ShowLines(const std::string& text, Console& console) {
  for (const std::string_view line : Lines(text)) console.out << "      " << OneLine(line) << '\n';
}

void ShowPath(const Step& step, Console& console) {
  console.out << (step.kind == Step::Kind::kFolder ? "  folder " : "  file   ")
              << OneLine(step.path) << Format(", mode %04o", step.mode);
  if (step.kind == Step::Kind::kFolder) {
    console.out << ", owner " << step.owner << ':' << step.group << '\n';
  } else if (!step.about.empty()) {
    console.out << ": " << step.about << '\n';
  } else {
    console.out << ":\n";
    ShowLines(step.Shown(), console);
  }
}

}  // namespace

std::string Step::Shown() const { return Replaced(text, std::string(1, kSecret), kMask); }

std::string Step::Real() const {
  if (secret.empty()) return text;
  const std::string value = kind == Kind::kStatement ? QuotedText(secret) : secret;
  return Replaced(text, std::string(1, kSecret), value);
}

void Plan::AddStatement(std::string text, std::string secret) {
  steps.push_back({Step::Kind::kStatement, {}, std::move(text), std::move(secret), {}});
}

void Show(const Plan& plan, const std::string& server, Console& console) {
  bool on_server = false;
  for (const Step& step : plan.steps) {
    const bool is_statement = step.kind == Step::Kind::kStatement;
    if (&step == &plan.steps.front() && !is_statement) console.out << "On this machine:\n";
    if (is_statement && !std::exchange(on_server, true)) console.out << "On " << server << ":\n";
    if (is_statement) {
      const std::string text = step.Shown() + ";";
      for (const std::string_view line : Lines(text)) console.out << "  " << OneLine(line) << '\n';
    } else {
      ShowPath(step, console);
    }
  }
  for (const std::string& note : plan.notes) console.out << "note: " << OneLine(note) << '\n';
}

std::string PlanObstacle(const Plan& plan) {
  for (const Step& step : plan.steps) {
    if (step.kind == Step::Kind::kStatement) continue;
    const std::string folder = NearestFolder(step.path);
    if (access(folder.c_str(), W_OK | X_OK) != 0) return ErrorText(folder, errno);
    if (step.kind == Step::Kind::kFolder && step.owner != geteuid() && geteuid() != 0) {
      return OneLine(step.path) + " is to belong to user " + std::to_string(step.owner) +
             " -> run this as root";
    }
  }
  return {};
}

Applied Apply(const Plan& plan, Server& server) {
  Applied applied;
  for (const Step& step : plan.steps) {
    applied.failure = Do(step, server);
    if (!applied.failure.empty()) break;
    ++applied.done;
  }
  return applied;
}

}  // namespace ctl
