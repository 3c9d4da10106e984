// What is missing on a machine and its server for the service to work, as a plan. What is there is
// left alone, whatever it is.
#pragma once

#include <string>
#include <vector>

#include "midtablectl/setup/creation_script.h"
#include "midtablectl/setup/plan.h"
#include "midtablectl/setup/target.h"

namespace ctl {

// --- This machine (machine_plan.cpp)

// Adds the folders, lists, definitions and settings. The settings come last, before the login on
// the server: a password that is not on the disk yet must not be on the server.
void PlanMachine(const Target& target, Plan& plan);

// --- The server (server_plan.cpp)

// Adds the databases and tables that all devices share.
std::string PlanSharedTables(Server& server, Plan& plan);
// Adds what the service's login lacks: the login itself, and privileges. `server` is an
// administrator's. The result is empty, or what is wrong with a remedy behind an arrow: a login is
// there, and the settings do not have its password.
std::string PlanLogin(const SetupOptions& options, const Target& target, Server& server,
                      Plan& plan);
// Adds the databases of the devices with their tables of these years. A script of the operator's
// that cannot be used is an error, likewise.
std::string PlanYearTables(const std::vector<std::string>& devices, const std::vector<int>& years,
                           Server& server, Plan& plan);
// The script of year tables: the operator's file, or the sample where there is none. `error` says
// why a file that is there cannot be read.
std::string YearTableScript(std::string& error);

}  // namespace ctl
