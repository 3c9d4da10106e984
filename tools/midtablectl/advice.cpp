// The manual's formats are compared with a line of the log as printf would have written it, and the
// server's words with a table of those that are known to come from a mistake in the installation.
#include "midtablectl/advice.h"

#include "midtablectl/printf_values.h"
#include "midtablectl/text.h"
#include "support/trim.h"

namespace ctl {

namespace {

// The format as printf takes it: the document shows it as the source has it, with the escape of a
// line feed that two messages bring along.
std::string Unescaped(std::string text) {
  const std::size_t at = text.find("\\n");
  if (at != std::string::npos) text.replace(at, 2, "\n");
  return text;
}

// The rows of the document: "| level | `format` | meaning | action |", below the heading of their
// unit. tools/check-messages keeps every row in this form.
std::vector<Message> ParseDocument(std::string_view document) {
  std::vector<Message> messages;
  std::string unit;
  for (const std::string_view line : Lines(document)) {
    if (line.starts_with("## ")) unit = Trim(line.substr(3));
    const std::size_t open = line.find(" | `");
    if (!line.starts_with("| ") || open == std::string_view::npos) continue;
    const std::size_t close = line.find("` | ", open + 4);
    const std::size_t split = close == std::string_view::npos ? close : line.find(" | ", close + 4);
    if (split == std::string_view::npos || !line.ends_with(" |")) continue;
    messages.push_back({unit, std::string(line.substr(2, open - 2)),
                        Unescaped(std::string(line.substr(open + 4, close - open - 4))),
                        std::string(line.substr(close + 4, split - close - 4)),
                        std::string(line.substr(split + 3, line.size() - split - 5))});
  }
  return messages;
}

// How many characters of a format are not conversions.
std::size_t OwnText(const std::string& format) {
  std::size_t size = format.size();
  for (std::size_t at = format.find('%'); at != std::string::npos; at = format.find('%', at + 1)) {
    size -= 2;
  }
  return size;
}

// A text of a database server, of its client library or of the service's own checks.
struct ServerText {
  const char* text;  // compared in small letters
  const char* advice;
  const char* statement = "";  // where not empty, the text has this meaning after this statement
};

constexpr char kGoneAway[] = "gone away";
constexpr char kLostConnection[] = "lost connection";
constexpr char kMaybeLoaded[] =
    "the connection broke, see the server's error log; the file may be loaded all the same: see "
    "\"After a crash\" in operations.md before it is tried again";

// The first that occurs counts, so what tells more stands before what may come along with it.
constexpr ServerText kServerTexts[] = {
    {kLocalLoadsOff.text,
     "set global local_infile = 1 on the server, and local_infile=1 in the group [mysqld] of its "
     "option file, or it is off again after a restart"},
    {kNoRollback.text, "alter table that table to engine = InnoDB"},
    {kUnknownKind.text,
     "the kind is the last letter of the table in the file's name: where it is a right one, add a "
     "MidTab with that Name below Mem to the definition file, then midtablectl retry; else rename "
     "the file"},
    {kChangedWhileRead.text,
     "the producer must write under another name and rename the file once it is whole"},
    {"access denied",
     "the service's user lacks the privilege FILE, whatever the server says of a password: grant "
     "file on *.* to it",
     kLoadStatement.text},
    {"doesn't exist",
     "no mem table was made: the kind, the last letter of the table, is not under Mem in the table "
     "definitions",
     kLoadStatement.text},
    {kGoneAway, kMaybeLoaded, kLoadStatement.text},
    {kLostConnection, kMaybeLoaded, kLoadStatement.text},
    {"secure-file-priv",
     "secure_file_priv must be \"\" or a folder above the file; the server says the same when it "
     "does not see the folder at all: midtablectl check tells which"},
    {"errcode: 13",
     "the server may not read the file or pass a folder: chmod o+x the folders; "
     "midtablectl check names the one in the way"},
    {"permission denied", "a mode is in the way: midtablectl check names the folder"},
    {"errcode: 2 ",
     "the server does not see the file: wrong modes of a folder, a confinement of its "
     "unit, or another machine; midtablectl check tells which"},
    {"errcode: 28", "a disk is full: make room where the server's data and temporary files are"},
    {"no space left", "a disk is full: make room there"},
    {"is full", "the server's disk or its tablespace is full: make room"},
    {"using password",
     "wrong user or password: midtablectl setup --reset-password gives the login that of the "
     "settings; or mend dbinfo.conf and restart the service, which reads it at its start"},
    {"access denied",
     "a privilege is missing: midtablectl check names it with its grant statement"},
    {"command denied",
     "a privilege is missing: midtablectl check names it with its grant statement"},
    {"duplicate column", "a statement names one column twice: mend it in the definition file"},
    {"duplicate entry", "rows with a key that is there already: write on duplicate key update"},
    {"unknown column",
     "statement and table do not fit: mend the definition file, or alter the table "
     "that is older than it"},
    {"column count doesn't match",
     "the insert and its table differ: name the columns, or alter the "
     "table that is older than the definition"},
    {"doesn't exist",
     "a table is missing: midtablectl year-tables --year YYYY makes those of a year; "
     "else look at its Create"},
    {"unknown database", "create the database: see the sample setup.sql"},
    {"unknown storage engine", "write engine = InnoDB"},
    {"error in your sql syntax",
     "mend the statement in the definition file; the server's text shows "
     "the place"},
    {"data too long",
     "a value is longer than its column: widen it in the definition and alter the "
     "table"},
    {"out of range",
     "a number does not fit its column: widen it in the definition and alter the "
     "table"},
    {"incorrect", "a value does not fit its column: see the row in the file"},
    {"constraint", "a row breaks a rule of the table, so it is no sound record: mend or remove it"},
    {"lock wait timeout",
     "another session holds the table: look for long transactions (show full "
     "processlist), then try again"},
    {"deadlock", "another session was in the way: try again"},
    {kGoneAway,
     "the connection broke: see the server's error log; statements larger than "
     "max_allowed_packet do that too"},
    {kLostConnection, "the connection broke: see the server's error log"},
    {"can't connect",
     "is the server up, and are host and port of dbinfo.conf its own? After a change there restart "
     "the service"},
    {"unknown server host",
     "the host in dbinfo.conf has no address: mend it and restart the service"},
    {"read-only", "the server takes no changes (read_only): is it a replica?"},
    {"read only", "the server takes no changes (read_only): is it a replica?"},
    {kNotConnected.text, "the connection was lost: see whether the server is up"},
    {kTemplateFault.text, "mend the placeholders of the template: see definitions.md"},
    {kDefinitionFault.text,
     "mend the definition file; midtablectl check shows all that is wrong with it, and it is read "
     "again as soon as it has changed"},
};

}  // namespace

const std::vector<Message>& Messages() {
  static const std::vector<Message> messages = ParseDocument(kMessagesDocument);
  return messages;
}

const Message* FindMessage(const LogEntry& entry) {
  const Message* best = nullptr;
  for (const Message& message : Messages()) {
    const MessageFormat form = {message.unit.c_str(), message.level.c_str(),
                                message.format.c_str()};
    if (!entry.ValuesOf(form)) continue;
    if (best == nullptr || OwnText(message.format) > OwnText(best->format)) best = &message;
  }
  return best;
}

std::string ServerAdvice(std::string_view text) {
  const std::string lower = Lower(text);
  // The words of the statement that failed are not the server's: a column may be called
  // "incorrect".
  std::size_t words = lower.rfind(kServerWordsFollow.text);
  if (words == std::string::npos) words = lower.rfind(kServerWordsFollowToo.text);
  if (words == std::string::npos) words = 0;
  for (const ServerText& known : kServerTexts) {
    if (lower.find(Lower(known.text), words) == std::string::npos) continue;
    if (lower.find(known.statement) != std::string::npos) return known.advice;
  }
  return {};
}

bool IsLostAnswer(std::string_view words) {
  const std::string lower = Lower(words);
  return lower.find(kLostConnection) != std::string::npos ||
         lower.find(kGoneAway) != std::string::npos;
}

}  // namespace ctl
