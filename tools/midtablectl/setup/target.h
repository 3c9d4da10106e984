// What a setup is for: the server, the login of the service, the way of counting, the devices. It
// comes from the settings file where there is one, else from the options and from answers.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "config/dbinfo.h"
#include "midtablectl/console.h"

namespace ctl {

struct SetupOptions {
  std::string host;                  // of the database server; here and below empty for not given
  int port = 0;                      // 0 for not given
  std::string user;                  // the service's login
  std::string login_host;            // the part of its account behind the "@"
  std::string delivery;              // kDeliveryOnce, or kDeliveryNone
  std::vector<std::string> devices;  // their IDs
  std::string owner;                 // of the devices' folders
  std::string admin_user;
  std::string admin_file;       // an option file with the administrator's login
  bool reset_password = false;  // a login that is there may get another password
  bool yes = false;             // do it without asking
  bool dry_run = false;         // show what would be done
};

// The value of --delivery for settings without that key.
inline constexpr char kDeliveryNone[] = "none";

struct Target {
  MYSQLAUTH login;   // the service's, without a database; the password is empty for one to be made
  bool once = true;  // delivery=once
  bool has_settings = false;         // the settings file is there, so it is not to be made
  std::vector<std::string> devices;  // sorted; those of the spool's folders too
  uid_t owner = 0;                   // of the devices' folders
  gid_t group = 0;

  // Whether the server is reached without a network.
  bool IsLocal() const;
};

// Finds out what is wanted. Asks for what is not given where somebody can answer, unless the
// options say not to. The result is empty, or what is wrong with a remedy behind an arrow.
std::string FindTarget(const SetupOptions& options, Console& console, Target& target);

// Puts a question with the answer that an empty line stands for. False at the end of the input.
bool Ask(Console& console, const std::string& question, std::string& answer);
// The same for a password, which is not shown. False also after an interrupt.
bool AskPassword(Console& console, const std::string& question, std::string& answer);

// The IDs of the devices that have a folder in the spool. `error` is set where that cannot be read
// although it is there.
std::vector<std::string> DevicesOfSpool(std::string& error);

}  // namespace ctl
