// The administrator's connection to the database server, over which a setup works.
#pragma once

#include <memory>
#include <string>

#include "db/SqlBase.h"
#include "midtablectl/console.h"
#include "midtablectl/setup/target.h"

namespace ctl {

struct Administrator {
  std::unique_ptr<CSqlBase> sql;  // connected
  std::string user;
};

// Logs in, as the first of these that the server takes: with what the group [client] of the option
// file says, else without a password, else with the one that somebody types. A password comes from
// nowhere else, since other users can read command lines and environments. On a server of this
// machine the local socket is tried first, over which root needs no password by default. The
// service's client options hold here too, so that a server for which TLS is demanded is sent this
// login over TLS only. The result is empty, or what is wrong with a remedy behind an arrow.
std::string LogIn(const SetupOptions& options, const Target& target, Console& console,
                  Administrator& administrator);

}  // namespace ctl
