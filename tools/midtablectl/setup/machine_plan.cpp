#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include "midtablectl/setup/make_plan.h"
#include "midtablectl/setup/samples.h"
#include "midtablectl/text.h"
#include "support/paths.h"

namespace ctl {

namespace {

constexpr mode_t kOpenFolder = 0755;  // a database server must be able to enter
constexpr mode_t kLogFolder = 0750;   // it may show rows of data
constexpr mode_t kOpenFile = 0644;
constexpr mode_t kSecretFile = 0600;

bool Exists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

void AddFolder(const std::string& path, mode_t mode, uid_t owner, gid_t group, Plan& plan) {
  if (Exists(path)) return;
  plan.steps.push_back({Step::Kind::kFolder, path, {}, {}, {}, mode, owner, group});
}

void AddFile(const std::string& path, mode_t mode, const std::string& content,
             const std::string& secret, const std::string& about, Plan& plan) {
  if (Exists(path)) return;
  plan.steps.push_back({Step::Kind::kFile, path, content, secret, about, mode});
}

void AddSample(const std::string& path, const std::string& content, const std::string& name,
               Plan& plan) {
  AddFile(path, kOpenFile, content, {}, "the sample " + name + "; make it yours", plan);
}

// Those who read logs; where a system has no such group, that of this process.
gid_t LogReaders() {
  const group* const readers = getgrnam("adm");
  return readers != nullptr && geteuid() == 0 ? readers->gr_gid : getegid();
}

// The sample, with the values of the target. What only an Oracle store reads is left out, and so is
// a key that is not wanted, with the line that explains it: that one would be taken for a slip.
std::string Settings(const Target& target) {
  std::string settings;
  for (const std::string_view line : Lines(kSampleSettings)) {
    const std::string_view key = line.substr(0, line.find('='));
    if (key.find("set_password") != std::string_view::npos) continue;
    if (!target.once && key.find("delivery") != std::string_view::npos) continue;
    std::string text(line);
    if (key == "host") text = "host=" + target.login.host;
    if (key == "port") text = "port=" + std::to_string(target.login.port);
    if (key == "user") text = "user=" + target.login.user;
    if (key == "password") text = std::string("password=") + Step::kSecret;
    settings += text + "\n";
  }
  return settings;
}

// A section for each device. The city counts on Oracle only, and has to be there.
std::string DeviceStates(const Target& target) {
  std::string states = "; One section a device, named like its folder in the spool.\n";
  for (const std::string& id : target.devices) states += "\n[" + id + "]\ncity = unknown\n";
  return states;
}

}  // namespace

void PlanMachine(const Target& target, Plan& plan) {
  AddFolder(paths::kSpool, kOpenFolder, geteuid(), getegid(), plan);
  AddFolder(paths::kRunLogDir, kLogFolder, geteuid(), LogReaders(), plan);
  for (const std::string& id : target.devices) {
    AddFolder(paths::kSpool + id + "/", kOpenFolder, target.owner, target.group, plan);
  }
  AddSample(paths::kMysqlDefinitions, kSampleDefinitions, "vqlog.xml", plan);
  AddSample(paths::kLoaderTemplates, kSampleLoaderTemplates, "sqlldr_ctl.xml", plan);
  AddSample(paths::kYearTables, kSampleYearTables, "year_tables.sql", plan);
  AddSample(paths::kLocalNumberBlocks, kSampleNumberBlocks, "localtour.csv", plan);
  AddFile(paths::kDeviceStates, kOpenFile, DeviceStates(target), {}, {}, plan);
  if (!target.has_settings) {
    AddFile(paths::kSettingsFile, kSecretFile, Settings(target), target.login.password, {}, plan);
  }
}

}  // namespace ctl
