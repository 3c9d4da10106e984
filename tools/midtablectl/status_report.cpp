// The forms in which a status is given out: a table for people, JSON for scripts, and the text
// exposition format for monitoring.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>

#include "log/zux_center_log.h"
#include "midtablectl/figures.h"
#include "midtablectl/local_time.h"
#include "midtablectl/status.h"
#include "midtablectl/text.h"

namespace ctl {

namespace {

constexpr int kBarWidth = 18;                  // characters
constexpr std::size_t kStatementLength = 100;  // that are shown

// The share of the files that were loaded since `before`, among these and those that still wait.
// Empty without `before`.
std::string Bar(const DatabaseStatus& now, const DatabaseStatus* before) {
  if (before == nullptr) return {};
  const std::uint64_t done = now.loaded > before->loaded ? now.loaded - before->loaded : 0;
  const std::uint64_t all = done + now.waiting;
  const auto full =
      static_cast<int>(all == 0 ? kBarWidth : static_cast<std::uint64_t>(kBarWidth) * done / all);
  const auto percent = static_cast<int>(all == 0 ? 100 : 100 * done / all);
  return "[" + std::string(static_cast<std::size_t>(full), '#') +
         std::string(static_cast<std::size_t>(kBarWidth - full), '.') + Format("] %3d%%", percent);
}

// The database in an earlier look; null where there is none.
const DatabaseStatus* Find(const SystemStatus* status, const std::string& database) {
  if (status == nullptr) return nullptr;
  for (const DatabaseStatus& one : status->databases) {
    if (one.database == database) return &one;
  }
  return nullptr;
}

// Whether no folder's files are unknown.
bool AllListed(const SystemStatus& status) {
  return status.spool_error == 0 &&
         std::all_of(status.databases.begin(), status.databases.end(),
                     [](const DatabaseStatus& one) { return one.error == 0; });
}

void AddTo(std::optional<std::uint64_t>& sum, const std::optional<std::uint64_t>& part) {
  if (!part) sum.reset();
  if (sum) *sum += *part;
}

// One line of the table, in the columns that PrintTable's heading names.
void PrintLine(const DatabaseStatus& one, const std::string& bar, Console& console) {
  const auto big = [](std::uint64_t number) { return static_cast<unsigned long long>(number); };
  std::string failed = Format("%7llu", big(one.failed));
  if (console.terminal && one.failed > 0) failed = "\x1b[31m" + failed + "\x1b[0m";
  console.out << Format("%-13s %8llu %10s %10s %8llu ", one.database.c_str(), big(one.waiting),
                        one.waiting_bytes ? Bytes(*one.waiting_bytes).c_str() : "?",
                        Oldest(one).c_str(), big(one.loaded))
              << failed
              << Format(" %9s %8.1f %9.0f %10s",
                        one.mem_rows ? std::to_string(*one.mem_rows).c_str() : "?",
                        one.files_per_second, one.rows_per_second,
                        one.seconds_to_empty ? Duration(*one.seconds_to_empty).c_str() : "?")
              << (bar.empty() ? "" : "  ") << bar << '\n';
}

// "FILE, 120.0 MiB of 300.0 MiB, 40 %, for 12 s".
std::string Progress(const LoadingState& load, std::time_t now) {
  std::string text = OneLine(load.file);
  if (load.files > 1) text += " and " + std::to_string(load.files - 1) + " more";
  text += ", ";
  if (load.bytes_done) text += Bytes(*load.bytes_done) + " of ";
  text += Bytes(load.bytes_total);
  if (load.bytes_done && load.bytes_total > 0) {
    const auto share =
        static_cast<double>(*load.bytes_done) / static_cast<double>(load.bytes_total);
    text += Format(", %.0f %%", 100 * share);
  }
  return text + ", for " +
         Duration(static_cast<double>(std::max<std::time_t>(now - load.since, 0)));
}

// What the service is at, and what it waits for.
void PrintDelivery(const SystemStatus& status, Console& console) {
  std::ostringstream lines;
  for (const LoadingState& load : status.loading) {
    lines << "loading: " << Progress(load, status.time) << '\n';
  }
  for (const AtWork& work : status.at_work) {
    lines << "at work: " << work.database << " for " << work.seconds
          << " s: " << OneLine(work.statement).substr(0, kStatementLength) << '\n';
  }
  for (const DatabaseStatus& one : status.databases) {
    if (one.left_out.value_or(0) == 0) continue;
    lines << "left out: " << Count(*one.left_out, "line") << " of files of " << one.database
          << " since the service's start: midtablectl why\n";
  }
  for (const Held& held : status.held) {
    lines << "held back: " << OneLine(held.what) << ", " << held.files
          << " files wait: " << OneLine(held.reason) << '\n';
  }
  const std::string text = lines.str();
  if (!text.empty()) console.out << '\n' << text;
}

// What to type next where something is not as it should be.
void PrintNext(const SystemStatus& status, Console& console) {
  const bool has_failed = std::any_of(status.databases.begin(), status.databases.end(),
                                      [](const DatabaseStatus& one) { return one.failed > 0; });
  if (status.running && !has_failed && status.held.empty()) return;
  console.out << '\n';
  if (!status.running) {
    console.out << "The service is not running; what waits is taken once it is: systemctl start "
                   "midtable\nWhy it ended: midtablectl why, journalctl -u midtable\n";
  }
  if (has_failed || !status.held.empty()) console.out << "What to do: midtablectl why\n";
}

}  // namespace

std::string Oldest(const DatabaseStatus& one) {
  if (one.waiting == 0) return "-";
  return one.oldest_seconds ? Duration(static_cast<double>(*one.oldest_seconds)) : "?";
}

DatabaseStatus Total(const SystemStatus& status) {
  DatabaseStatus total;
  total.database = AllListed(status) ? "all" : "all listed";
  total.mem_rows = 0;
  total.seconds_to_empty = 0;
  for (const DatabaseStatus& one : status.databases) {
    total.waiting += one.waiting;
    AddTo(total.waiting_bytes, one.waiting_bytes);
    AddTo(total.kept, one.kept);
    if (!one.oldest_seconds) total.oldest_seconds.reset();
    if (total.oldest_seconds) {
      total.oldest_seconds = std::max(*total.oldest_seconds, *one.oldest_seconds);
    }
    total.loaded += one.loaded;
    total.failed += one.failed;
    total.files_per_second += one.files_per_second;
    total.rows_per_second += one.rows_per_second;
    AddTo(total.mem_rows, one.mem_rows);
    if (!one.seconds_to_empty) total.seconds_to_empty.reset();
    if (total.seconds_to_empty) {
      total.seconds_to_empty = std::max(*total.seconds_to_empty, *one.seconds_to_empty);
    }
  }
  return total;
}

// A folder that cannot be listed gets the reason in the place of its figures, and the others are
// shown all the same.
void PrintTable(const SystemStatus& status, const SystemStatus* first, Console& console) {
  const std::tm local = LocalTime(status.time);
  std::string service = "not running";
  if (status.running) {
    service = status.pid > 0 ? "running, process " + std::to_string(status.pid) : "running";
  }
  console.out << Format("midtable %s      %04d-%02d-%02d %02d:%02d:%02d\n\n", service.c_str(),
                        local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                        local.tm_min, local.tm_sec)
              << Format("%-13s %8s %10s %10s %8s %7s %9s %8s %9s %10s%s\n", "database", "waiting",
                        "bytes", "oldest", "loaded", "failed", "mem rows", "files/s", "rows/s",
                        "empty in", first != nullptr ? "  since the first look" : "");
  for (const DatabaseStatus& one : status.databases) {
    if (one.error != 0) {
      console.out << Format("%-13s %s\n", one.database.c_str(), std::strerror(one.error));
      continue;
    }
    const DatabaseStatus* before = Find(first, one.database);
    // A database that came up since then had nothing at the first look.
    static const DatabaseStatus kNew;
    PrintLine(one, first == nullptr ? "" : Bar(one, before != nullptr ? before : &kNew), console);
  }
  if (status.databases.empty() && status.spool_error == 0) {
    console.out << "no database has a folder in the spool\n";
  }
  if (status.databases.size() > 1) {
    const DatabaseStatus before = first != nullptr ? Total(*first) : DatabaseStatus();
    const DatabaseStatus total = Total(status);
    PrintLine(total, Bar(total, first != nullptr ? &before : nullptr), console);
  }
  PrintDelivery(status, console);
  PrintNext(status, console);
}

namespace {

// The members keep their order, for whoever reads the text without a script.
using Json = nlohmann::ordered_json;

// Where a folder could not be listed, all figures are unknown but the rows, which are asked of the
// server.
Json DatabaseJson(const DatabaseStatus& one) {
  Json json = {{"database", one.database},
               {"waiting", one.waiting},
               {"waiting_bytes", nullptr},
               {"oldest_seconds", nullptr},
               {"loaded", one.loaded},
               {"failed", one.failed},
               {"kept", nullptr},
               {"lines_left_out", nullptr},
               {"files_per_second", one.files_per_second},
               {"rows_per_second", one.rows_per_second},
               {"mem_rows", nullptr},
               {"seconds_to_empty", nullptr}};
  if (one.waiting_bytes) json["waiting_bytes"] = *one.waiting_bytes;
  if (one.oldest_seconds) json["oldest_seconds"] = *one.oldest_seconds;
  if (one.kept) json["kept"] = *one.kept;
  if (one.left_out) json["lines_left_out"] = *one.left_out;
  if (one.error != 0) {
    for (auto& member : json.items()) {
      if (member.key() != "database") member.value() = nullptr;
    }
  }
  if (one.mem_rows) json["mem_rows"] = *one.mem_rows;
  if (one.seconds_to_empty) json["seconds_to_empty"] = *one.seconds_to_empty;
  return json;
}

Json LoadingJson(const LoadingState& load, std::time_t now) {
  Json json = {{"file", load.file},
               {"table", load.table},
               {"seconds", now - load.since},
               {"files", load.files},
               {"bytes_total", load.bytes_total},
               {"bytes_done", nullptr}};
  if (load.bytes_done) json["bytes_done"] = *load.bytes_done;
  return json;
}

}  // namespace

std::string ToJson(const SystemStatus& status) {
  Json json = {{"time", status.time}, {"running", status.running}, {"databases", Json::array()}};
  for (const DatabaseStatus& one : status.databases) {
    json["databases"].push_back(DatabaseJson(one));
  }
  if (status.spool_error != 0) json["databases"] = nullptr;
  if (status.once) json["held_back"] = json["at_work"] = Json::array();
  for (const Held& held : status.held) {
    json["held_back"].push_back(
        {{"what", held.what}, {"files", std::atoll(held.files.c_str())}, {"reason", held.reason}});
  }
  if (status.by_service) json["loading"] = Json::array();
  for (const LoadingState& load : status.loading) {
    json["loading"].push_back(LoadingJson(load, status.time));
  }
  for (const AtWork& work : status.at_work) {
    json["at_work"].push_back({{"database", work.database},
                               {"seconds", std::atoll(work.seconds.c_str())},
                               {"statement", work.statement}});
  }
  return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

namespace {

using Sample = std::optional<double>;
using Labels = std::vector<std::pair<std::string, std::string>>;

// Collects samples in the text exposition format: a family has a name, a line of help, and one
// sample for each set of labels.
class Exposition {
 public:
  void Family(const std::string& name, const std::string& help) {
    m_name = "midtable_" + name;
    m_text += "# HELP " + m_name + " " + help + "\n# TYPE " + m_name + " gauge\n";
  }
  void Add(double value, const Labels& labels = {}) {
    m_text += m_name;
    for (std::size_t i = 0; i < labels.size(); ++i) {
      m_text += (i == 0 ? "{" : ",") + labels[i].first + "=\"" + Escaped(labels[i].second) + "\"";
    }
    // 17 digits tell any two numbers of this type apart.
    m_text += (labels.empty() ? "" : "}") + Format(" %.17g\n", value);
  }
  const std::string& text() const { return m_text; }

 private:
  // The format of the collector has escapes of its own for these three characters.
  static std::string Escaped(const std::string& value) {
    std::string escaped;
    for (const char c : value) {
      if (c == '\\' || c == '"') escaped += '\\';
      escaped += c == '\n' ? "\\n" : std::string(1, c);
    }
    return escaped;
  }

  std::string m_name;
  std::string m_text;
};

void AddSystem(const SystemStatus& status, Exposition& out) {
  out.Family("running", "1 while the service holds its lock.");
  out.Add(status.running ? 1 : 0);
  out.Family("server_reachable", "1 when the mem tables could be looked at.");
  out.Add(status.server_error.empty() ? 1 : 0);
  out.Family("spool_readable", "1 when the spool and all folders in it could be listed.");
  out.Add(AllListed(status) ? 1 : 0);
}

// A folder that cannot be listed has no samples: a gap in a graph is true, and a line at zero is
// not.
void AddFiles(const SystemStatus& status, Exposition& out) {
  out.Family("files", "Mem files in the spool, by state.");
  for (const DatabaseStatus& one : status.databases) {
    if (one.error != 0) continue;
    const auto add = [&](std::uint64_t files, const char* state) {
      out.Add(static_cast<double>(files), {{"database", one.database}, {"state", state}});
    };
    add(one.waiting, "waiting");
    add(one.loaded, "loaded");
    add(one.failed, "failed");
    if (one.kept) add(*one.kept, "kept");
  }
}

// A figure of a folder, which is unknown when the folder could not be listed.
template <typename T>
Sample Listed(const DatabaseStatus& one, const std::optional<T>& figure) {
  return one.error == 0 && figure ? Sample(static_cast<double>(*figure)) : std::nullopt;
}
Sample Listed(const DatabaseStatus& one, double figure) {
  return one.error == 0 ? Sample(figure) : std::nullopt;
}

}  // namespace

std::string ToPrometheus(const SystemStatus& status) {
  Exposition out;
  AddSystem(status, out);
  AddFiles(status, out);
  const auto gauge = [&](const char* name, const char* help, auto value) {
    out.Family(name, help);
    for (const DatabaseStatus& one : status.databases) {
      if (const Sample sample = value(one)) out.Add(*sample, {{"database", one.database}});
    }
  };
  gauge("waiting_bytes", "Size of the files that wait.",
        [](const DatabaseStatus& one) { return Listed(one, one.waiting_bytes); });
  gauge("left_out_lines", "Lines of loaded files that are in no table, since the service's start.",
        [](const DatabaseStatus& one) { return Listed(one, one.left_out); });
  gauge("oldest_waiting_seconds", "Age of the oldest file that waits.",
        [](const DatabaseStatus& one) { return Listed(one, one.oldest_seconds); });
  gauge("loaded_files_per_second", "Files loaded, over the last minute.",
        [](const DatabaseStatus& one) { return Listed(one, one.files_per_second); });
  gauge("loaded_rows_per_second", "Rows loaded, over the last minute.",
        [](const DatabaseStatus& one) { return Listed(one, one.rows_per_second); });
  gauge("seconds_to_empty", "Time until no file waits, at the speed of the last minute.",
        [](const DatabaseStatus& one) { return one.seconds_to_empty; });
  gauge("mem_table_rows", "Rows that wait in mem tables.", [](const DatabaseStatus& one) {
    return one.mem_rows ? Sample(static_cast<double>(*one.mem_rows)) : std::nullopt;
  });
  gauge("ledger_rows", "Rows of the ledgers of delivery=once.", [](const DatabaseStatus& one) {
    return one.ledger_rows ? Sample(static_cast<double>(*one.ledger_rows)) : std::nullopt;
  });
  gauge("last_loaded_timestamp_seconds", "When a file was loaded last.",
        [](const DatabaseStatus& one) {
          return one.last_loaded ? Sample(static_cast<double>(*one.last_loaded)) : std::nullopt;
        });
  if (status.once && status.log_error.empty()) {
    out.Family("held_back", "Tables, files and servers that hold files back.");
    out.Add(static_cast<double>(status.held.size()));
  }
  return out.text();
}

}  // namespace ctl
