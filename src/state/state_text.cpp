#include "state/state_text.h"

#include <unistd.h>

#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;

constexpr int kFormatVersion = 1;

template <typename T>
Json OrNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json();
}

Json HeldJson(const std::vector<HeldBack>& all) {
  Json array = Json::array();
  for (const HeldBack& held : all) {
    array.push_back({{"what", held.what},
                     {"files", held.files},
                     {"reason", held.reason},
                     {"since", held.since}});
  }
  return array;
}

Json LoadJson(const RunningLoad& load) {
  return {{"file", load.file},
          {"table", load.table},
          {"since", load.since},
          {"files", load.files},
          {"bytes_total", load.bytes_total},
          {"bytes_done", OrNull(load.bytes_done)}};
}

Json DatabaseJson(const std::string& database, const DatabaseFigures& figures, std::time_t now) {
  Json json{{"database", database},
            {"waiting", figures.waiting},
            {"oldest_waiting_at", OrNull(figures.oldest_waiting_at)},
            {"loading", nullptr},
            {"loaded_files", figures.loaded_files},
            {"loaded_rows", figures.loaded_rows},
            {"counted_rows", figures.counted_rows},
            {"failed_files", figures.failed_files},
            {"failed_rows", OrNull(figures.failed_rows)},
            {"last_minute",
             {{"files", figures.last_minute.Files(now)}, {"rows", figures.last_minute.Rows(now)}}},
            {"in_spool", nullptr},
            {"held_back", HeldJson(figures.held_back)},
            {"last_success_at", nullptr},
            {"last_error", nullptr}};
  if (figures.load) json["loading"] = LoadJson(*figures.load);
  if (figures.in_spool) {
    json["in_spool"] = {{"loaded", figures.in_spool->loaded}, {"failed", figures.in_spool->failed}};
  }
  if (figures.last_success_at != 0) json["last_success_at"] = figures.last_success_at;
  if (figures.last_error_at != 0) {
    json["last_error"] = {{"at", figures.last_error_at}, {"text", figures.last_error}};
  }
  return json;
}

// Names and texts of others may hold any bytes.
std::string Dump(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

// One database after the other becomes text: a document of all of them would take several times the
// memory.
std::string StateText(const ServiceFacts& facts, const StateBoard& board, std::time_t now) {
  std::string text = Dump({{"version", kFormatVersion},
                           {"service_version", MIDTABLE_VERSION},
                           {"pid", getpid()},
                           {"started_at", facts.started_at},
                           {"written_at", now},
                           {"delivery", facts.delivery},
                           {"workers", facts.workers},
                           {"held_back", HeldJson(board.HeldBackOfAll())}});
  text.pop_back();
  text += ",\"databases\":[";
  std::string database;
  DatabaseFigures figures;
  for (const char* separator = "\n"; board.Next(database, figures); separator = ",\n") {
    // Where the service itself reads the files, it sees the lines of all that fail.
    if (!facts.delivery.empty() && !figures.failed_rows) figures.failed_rows = 0;
    text += separator + Dump(DatabaseJson(database, figures, now));
  }
  return text + "]}\n";
}
