// What is to be done to a machine and its database server, as a value: it is shown, then done.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

#include "midtablectl/console.h"
#include "midtablectl/server.h"

namespace ctl {

// One thing to do. A password is no part of `text`, so that no way of showing a step can show it:
// kSecret stands in its place.
struct Step {
  enum class Kind { kFolder, kFile, kStatement };
  static constexpr char kSecret = '\1';

  Kind kind;
  std::string path;    // of the folder or file
  std::string text;    // the statement, or the content of the file
  std::string secret;  // what stands in the place of kSecret; empty for none
  std::string about;   // a file that is not shown in full: what it is
  mode_t mode = 0;     // exactly, whatever the umask
  uid_t owner = 0;     // the process's own for files
  gid_t group = 0;

  // The text for people, and for the file or the server.
  std::string Shown() const;
  std::string Real() const;
};

struct Plan {
  std::vector<Step> steps;         // in this order
  std::vector<std::string> notes;  // what is worth knowing beside them

  void AddStatement(std::string text, std::string secret = {});
};

// Prints every step. `server` names the server and who works there.
void Show(const Plan& plan, const std::string& server, Console& console);

// What keeps this process from making the folders and files of the plan, as far as that can be told
// before the first of them is made: a sentence with its remedy. Empty for nothing.
std::string PlanObstacle(const Plan& plan);

// How far a plan was carried out.
struct Applied {
  std::size_t done = 0;  // steps
  std::string failure;   // of the step after them, with its remedy; empty when all are done
};

// Takes the steps in their order, up to the first that fails. Nothing that exists is replaced: a
// file that has appeared since the plan was made is a failure. A file is complete under its name or
// not there at all.
Applied Apply(const Plan& plan, Server& server);

}  // namespace ctl
