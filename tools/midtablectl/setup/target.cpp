#include "midtablectl/setup/target.h"

#include <pwd.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <sstream>

#include "db/client_options.h"
#include "midtablectl/spool_scan.h"
#include "midtablectl/text.h"
#include "spool/mem_file.h"
#include "support/paths.h"
#include "support/trim.h"

namespace ctl {

namespace {

constexpr char kInterrupt = '\3';  // what the key for an interrupt sends

// Whether a value can be a line of the settings file, which knows no quotes.
bool FitsSettings(const std::string& value) {
  return !value.empty() && value == Trim(value) && value == OneLine(value);
}

// The terminal without an echo; an interrupt comes as a character, so that the echo comes back in
// every case.
class HiddenInput {
 public:
  HiddenInput() {
    m_changed = tcgetattr(STDIN_FILENO, &m_before) == 0;
    termios hidden = m_before;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO | ISIG);
    m_changed = m_changed && tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden) == 0;
  }
  ~HiddenInput() {
    if (m_changed) tcsetattr(STDIN_FILENO, TCSAFLUSH, &m_before);
  }
  HiddenInput(const HiddenInput&) = delete;
  HiddenInput& operator=(const HiddenInput&) = delete;

 private:
  termios m_before{};
  bool m_changed = false;
};

std::string Contradiction(const char* option, const std::string& given, const std::string& there) {
  if (given.empty() || given == there) return {};
  return std::string(option) + " " + OneLine(given) + ": " + paths::kSettingsFile + " says \"" +
         OneLine(there) + "\" -> leave the option out, or edit the file";
}

// The settings that are there decide; an option that says otherwise is refused.
std::string TakeSettings(const SetupOptions& options, Target& target) {
  CDBInfo settings(paths::kSettingsFile);
  if (!settings.readConfig()) {
    return std::string(paths::kSettingsFile) + ": " + settings.getError() +
           " -> midtablectl check --offline tells what is wrong with it";
  }
  target.login = ReadCredentials(settings);
  if (IsOracle(target.login)) return "the store is on Oracle -> see oracle.md";
  ClientOptions client;
  if (!client.Read(target.login.client_options)) {
    return client.error() + " -> correct it: see CLIENT OPTIONS in dbinfo.conf(5)";
  }
  client.Complete(target.login);
  target.login.dbname.clear();
  const std::string delivery = settings.getValue("delivery");
  target.once = delivery == kDeliveryOnce;
  const std::string port = options.port == 0 ? "" : std::to_string(options.port);
  for (const std::string& error :
       {Contradiction("--host", options.host, target.login.host),
        Contradiction("--port", port, std::to_string(target.login.port)),
        Contradiction("--user", options.user, target.login.user),
        Contradiction("--delivery", options.delivery, target.once ? delivery : kDeliveryNone)}) {
    if (!error.empty()) return error;
  }
  return target.login.user.empty()
             ? std::string(paths::kSettingsFile) + " names no user -> add user=..."
             : std::string();
}

constexpr char kStopped[] = "no answer -> give the values as options: man midtablectl";

// The same from options and answers.
std::string TakeAnswers(const SetupOptions& options, bool asks, Console& console, Target& target) {
  MYSQLAUTH& login = target.login;
  login.host = options.host.empty() ? "127.0.0.1" : options.host;
  login.user = options.user.empty() ? "midtable" : options.user;
  std::string port = std::to_string(options.port == 0 ? 3306 : options.port);
  std::string delivery = options.delivery.empty() ? std::string(kDeliveryOnce) : options.delivery;
  if (asks && options.host.empty() && !Ask(console, "Host of the database server", login.host)) {
    return kStopped;
  }
  if (asks && options.port == 0 && !Ask(console, "Its port", port)) return kStopped;
  if (asks && options.delivery.empty() &&
      !Ask(console, "Count every row exactly once (once), or as the first version did (none)",
           delivery)) {
    return kStopped;
  }
  login.port = IsNumber(port) && port.size() < 6 ? std::stoi(port) : 0;
  if (login.port < 1 || login.port > 65535) {
    return "\"" + OneLine(port) + "\" is no port -> a number from 1 to 65535, 3306 mostly";
  }
  if (delivery != kDeliveryOnce && delivery != kDeliveryNone) {
    return "\"" + OneLine(delivery) + "\" is no way of counting -> once, or none";
  }
  target.once = delivery == kDeliveryOnce;
  for (const std::string& value : {login.host, login.user}) {
    if (FitsSettings(value)) continue;
    return "\"" + OneLine(value) +
           "\" cannot stand in the settings -> no blanks around it, and "
           "letters, digits or signs only";
  }
  return {};
}

std::string TakeDevices(const SetupOptions& options, bool asks, Console& console, Target& target) {
  std::string error;
  const std::vector<std::string> of_spool = DevicesOfSpool(error);
  if (!error.empty()) return error;
  std::set<std::string> all(of_spool.begin(), of_spool.end());
  all.insert(options.devices.begin(), options.devices.end());
  std::string answer;
  if (all.empty() && asks) {
    if (!Ask(console, "IDs of the devices, 8 hexadecimal digits each", answer)) return kStopped;
    std::istringstream words(answer);
    for (std::string word; words >> word;) all.insert(word);
  }
  if (all.empty()) return "no device -> name at least one: --devices ID...";
  for (const std::string& id : all) {
    if (IsDatabaseId(id)) continue;
    return "\"" + OneLine(id) + "\" is no device ID -> 8 hexadecimal digits";
  }
  target.devices.assign(all.begin(), all.end());
  return {};
}

// Producers write into the folders of the devices. Whose the spool is decides, unless an option
// does.
std::string TakeOwner(const SetupOptions& options, Target& target) {
  struct stat status {};
  target.owner = geteuid();
  target.group = getegid();
  if (stat(paths::kSpool, &status) == 0) {
    target.owner = status.st_uid;
    target.group = status.st_gid;
  }
  if (options.owner.empty()) return {};
  const passwd* const user = getpwnam(options.owner.c_str());
  if (user == nullptr) return "no user \"" + OneLine(options.owner) + "\" -> adduser, or another";
  target.owner = user->pw_uid;
  target.group = user->pw_gid;
  return {};
}

}  // namespace

bool Target::IsLocal() const {
  const std::string& host = login.host;
  return host.empty() || host == "localhost" || host == "::1" || host.starts_with("127.");
}

bool Ask(Console& console, const std::string& question, std::string& answer) {
  console.out << question;
  if (!answer.empty()) console.out << " [" << answer << ']';
  console.out << ": " << std::flush;
  std::string line;
  if (!std::getline(console.in, line)) return false;
  const std::string_view given = Trim(line);
  if (!given.empty()) answer = given;
  return true;
}

bool AskPassword(Console& console, const std::string& question, std::string& answer) {
  const HiddenInput hidden;
  console.out << question << ": " << std::flush;
  const bool given = static_cast<bool>(std::getline(console.in, answer));
  console.out << '\n' << std::flush;
  return given && answer.find(kInterrupt) == std::string::npos;
}

std::vector<std::string> DevicesOfSpool(std::string& error) {
  const Spool spool = ScanSpool();
  if (spool.error != 0 && spool.error != ENOENT) {
    error = std::string(paths::kSpool) + ": " + std::strerror(spool.error) +
            " -> run this as root or as the service's user";
  }
  std::vector<std::string> ids;
  for (const DatabaseFolder& folder : spool.folders) ids.push_back(folder.id);
  return ids;
}

std::string FindTarget(const SetupOptions& options, Console& console, Target& target) {
  struct stat status {};
  const bool asks = console.interactive && !options.yes;
  target.has_settings = lstat(paths::kSettingsFile, &status) == 0;
  std::string error = target.has_settings ? TakeSettings(options, target)
                                          : TakeAnswers(options, asks, console, target);
  if (error.empty()) error = TakeDevices(options, asks, console, target);
  if (error.empty()) error = TakeOwner(options, target);
  return error;
}

}  // namespace ctl
