#include "midtablectl/page/slots.h"

namespace ctl {

namespace {

std::uint64_t RowsOf(const HistorySlot& slot, const std::string* database) {
  if (database != nullptr) {
    const auto found = slot.rows.find(*database);
    return found == slot.rows.end() ? 0 : found->second;
  }
  std::uint64_t rows = 0;
  for (const auto& [name, count] : slot.rows) rows += count;
  return rows;
}

// The place of a slot among those of the day; kSlots for one that is too old or lies ahead.
std::size_t PlaceOf(const Page& page, const HistorySlot& slot) {
  const std::time_t back = (SlotsEnd(page) - slot.begin) / kSlotSeconds;
  return back >= 1 && back <= static_cast<std::time_t>(kSlots)
             ? kSlots - static_cast<std::size_t>(back)
             : kSlots;
}

}  // namespace

std::time_t SlotsEnd(const Page& page) {
  return page.status.time - page.status.time % kSlotSeconds + kSlotSeconds;
}

Series RatesOf(const Page& page, const std::string* database, std::size_t together) {
  std::vector<std::time_t> watched(kSlots / together);
  std::vector<std::uint64_t> rows(kSlots / together);
  for (const HistorySlot& slot : page.history.slots) {
    const std::size_t place = PlaceOf(page, slot);
    if (place == kSlots) continue;
    watched[place / together] += slot.watched;
    rows[place / together] += RowsOf(slot, database);
  }
  Series rates(watched.size());
  for (std::size_t i = 0; i < rates.size(); ++i) {
    if (watched[i] > 0) rates[i] = static_cast<double>(rows[i]) / static_cast<double>(watched[i]);
  }
  return rates;
}

Series AgesOf(const Page& page) {
  Series ages(kSlots);
  for (const HistorySlot& slot : page.history.slots) {
    const std::size_t place = PlaceOf(page, slot);
    if (place < kSlots) ages[place] = static_cast<double>(slot.oldest);
  }
  return ages;
}

std::uint64_t RowsOfDay(const Page& page, const std::string* database) {
  std::uint64_t rows = 0;
  for (const HistorySlot& slot : page.history.slots) rows += RowsOf(slot, database);
  return rows;
}

}  // namespace ctl
