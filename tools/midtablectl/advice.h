// What to do about a line of the run log, or about what a database server said.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "midtablectl/run_log.h"

namespace ctl {

// docs/messages.md as it was when the program was built. It tells the meaning of every message, so
// the tool and the manual cannot say different things.
extern const char kMessagesDocument[];

// One row of that document.
struct Message {
  std::string unit;
  std::string level;
  std::string format;   // as printf takes it
  std::string meaning;  // what it means, as a sentence
  std::string action;   // what to do, as a sentence
};

// All rows of the document, in its order.
const std::vector<Message>& Messages();

// The row of the message that the entry is: of several whose formats give its text, the one with
// the most text of its own. Null when there is none.
const Message* FindMessage(const LogEntry& entry);

// What to do about the first well-known text of a database server, or of the check of a template,
// in `text`; empty when there is none. A statement that was tried may stand before the server's
// words: its own words are not taken for the server's.
std::string ServerAdvice(std::string_view text);

// Whether the connection broke before the server answered, by the words of the client library: then
// nobody knows whether the statement was executed.
bool IsLostAnswer(std::string_view words);

}  // namespace ctl
