// What to do about a line of the run log, or about a server's text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "midtablectl/run_log.h"

namespace ctl {

// docs/messages.md as it was when the program was built.
extern const char kMessagesDocument[];

// One row of that document.
struct Message {
  std::string unit;
  std::string level;
  std::string format;
  std::string meaning;
  std::string action;
};

const std::vector<Message>& Messages();

// The message whose format the entry fits, the one with the most text of its own; null for none.
const Message* FindMessage(const LogEntry& entry);

// What to do about a well-known text of a database server or of the template check that occurs in
// `text`, where the statement may stand too; empty for an unknown one.
std::string ServerAdvice(std::string_view text);

}  // namespace ctl
