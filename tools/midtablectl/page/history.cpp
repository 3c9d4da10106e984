#include "midtablectl/page/history.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "midtablectl/text.h"
#include "support/file.h"

namespace ctl {

namespace {

constexpr int kVersion = 1;
// A file that this tool wrote is far below: a day of slots with kMostDatabases each.
constexpr off_t kMostBytes = 16 << 20;
// Of more, those with the most rows are remembered.
constexpr std::size_t kMostDatabases = 1000;

nlohmann::ordered_json SlotToJson(const HistorySlot& slot) {
  return {{"begin", slot.begin},
          {"watched", slot.watched},
          {"rows", slot.rows},
          {"waiting", slot.waiting},
          {"oldest", slot.oldest}};
}

// Whoever edits the file may write any numbers: those that are added up are kept in their bounds.
HistorySlot SlotFrom(const nlohmann::json& json) {
  HistorySlot slot;
  json.at("begin").get_to(slot.begin);
  json.at("watched").get_to(slot.watched);
  json.at("rows").get_to(slot.rows);
  json.at("waiting").get_to(slot.waiting);
  json.at("oldest").get_to(slot.oldest);
  slot.watched = std::clamp<std::time_t>(slot.watched, 0, 2 * kSlotSeconds);
  return slot;
}

// Throws what the library throws for a member that is missing or of another type.
History HistoryFrom(const nlohmann::json& json) {
  if (const int version = json.at("version"); version != kVersion) {
    throw std::invalid_argument("version " + std::to_string(version));
  }
  History history;
  json.at("looked_at").get_to(history.looked_at);
  for (const nlohmann::json& slot : json.at("slots")) history.slots.push_back(SlotFrom(slot));
  if (const nlohmann::json& counters = json.at("counters"); !counters.is_null()) {
    history.counters = RowCounters{counters.at("started_at"), counters.at("rows")};
  }
  json.at("totals_at").get_to(history.totals_at);
  for (const nlohmann::json& totals : json.at("totals")) {
    history.totals.push_back({totals.at("table"), totals.at("measure"), totals.at("days")});
  }
  return history;
}

// What stands in the file; nothing where there is none. `reason` tells why it cannot be used.
History Read(const std::string& path, std::string& reason) {
  struct stat status {};
  if (const FileDescriptor file = OpenRegular(path, status); !file) {
    if (errno != ENOENT) reason = std::strerror(errno);
    return {};
  }
  std::string content;
  if (status.st_size > kMostBytes) {
    reason = "it is too large";
    return {};
  }
  if (!ReadWhole(path, content)) {
    reason = std::strerror(errno);
    return {};
  }
  try {
    return HistoryFrom(nlohmann::json::parse(content));
  } catch (const std::exception& error) {
    reason = error.what();
    return {};
  }
}

// The databases with the most rows.
void Limit(RowCounts& rows) {
  if (rows.size() <= kMostDatabases) return;
  std::vector<std::uint64_t> counts;
  for (const auto& [database, count] : rows) counts.push_back(count);
  const auto last = counts.begin() + kMostDatabases - 1;
  std::nth_element(counts.begin(), last, counts.end(), std::greater<>());
  std::erase_if(rows, [least = *last](const auto& entry) { return entry.second < least; });
  while (rows.size() > kMostDatabases) rows.erase(rows.begin());
}

}  // namespace

std::string HistoryPath(const std::string& page) { return page + ".history.json"; }

History ReadHistory(const std::string& page, std::string& note) {
  const std::string path = HistoryPath(page);
  std::string reason;
  History history = Read(path, reason);
  if (reason.empty()) return history;
  const std::string aside = path + ".damaged";
  const bool moved = std::rename(path.c_str(), aside.c_str()) == 0;
  note = OneLine(path) + " cannot be used (" + OneLine(reason) + "), " +
         (moved ? "set aside as " + OneLine(aside)
                : "and cannot be set aside (" + std::string(std::strerror(errno)) + ")") +
         ": the curves begin anew";
  return {};
}

std::string ToJson(const History& history) {
  nlohmann::ordered_json json = {
      {"version", kVersion}, {"looked_at", history.looked_at}, {"slots", nlohmann::json::array()},
      {"counters", nullptr}, {"totals_at", history.totals_at}, {"totals", nlohmann::json::array()}};
  for (const HistorySlot& slot : history.slots) json["slots"].push_back(SlotToJson(slot));
  if (history.counters) {
    json["counters"] = {{"started_at", history.counters->started_at},
                        {"rows", history.counters->rows}};
  }
  for (const DayTotals& totals : history.totals) {
    json["totals"].push_back(
        {{"table", totals.table}, {"measure", totals.measure}, {"days", totals.days}});
  }
  return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

std::time_t SecondsSince(const History& history, std::time_t now) {
  const bool lately = history.looked_at < now && history.looked_at >= now - kSlotSeconds;
  return lately ? now - history.looked_at : 0;
}

void AddLook(const SystemStatus& status, const std::optional<RowCounts>& rows, History& history) {
  const std::time_t now = status.time;
  const std::time_t begin = now - now % kSlotSeconds;
  // A clock that was set back makes some of the slots come later than now.
  std::erase_if(history.slots, [&](const HistorySlot& slot) {
    return slot.begin <= begin - kHistorySeconds || slot.begin > begin;
  });
  if (history.slots.empty() || history.slots.back().begin != begin) {
    history.slots.push_back({begin, 0, {}, 0, 0});
  }
  HistorySlot& slot = history.slots.back();
  if (rows) {
    slot.watched += SecondsSince(history, now);
    for (const auto& [database, count] : *rows) {
      if (count > 0) slot.rows[database] += count;
    }
    Limit(slot.rows);
  }
  std::uint64_t waiting = 0;
  for (const DatabaseStatus& one : status.databases) {
    waiting += one.waiting;
    slot.oldest = std::max(slot.oldest, one.oldest_seconds.value_or(0));
  }
  slot.waiting = std::max(slot.waiting, waiting);
  history.looked_at = now;
}

}  // namespace ctl
