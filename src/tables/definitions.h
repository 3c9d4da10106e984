// The table definition file: its tree, and reads that log what is missing.
//
//   /root/Mem/MidCnt, /root/Mem/MidTab1 to MidTab<MidCnt>             mem tables
//   /root/Conv/<kind>/MidCnt, .../MidTab1 to MidTab<MidCnt>           mid tables of one kind
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "config/XmlStream.h"

inline constexpr char kMemDefinitions[] = "/root/Mem";
inline constexpr char kConversionDefinitions[] = "/root/Conv";
inline constexpr char kSequenceNode[] = "/root/Sequence";
inline constexpr char kCountElement[] = "MidCnt";
inline constexpr char kEntryElement[] = "MidTab";  // with its number behind it

// The path of the number of entries of `parent`, which is kMemDefinitions or the path of a kind.
std::string CountPath(const std::string& parent);
// The path of a kind's conversions.
std::string ConversionsOf(const std::string& kind);
// Whether a kind's conversions have a second statement, which is tried after the first one failed.
bool HasFallback(std::string_view kind);
// Calls `use` with the path of each entry of `parent`, from 1 to `count`, in order. Ends early,
// with false, when a call returns false. A negative count has no entry.
bool ForEachEntry(const std::string& parent, int count,
                  const std::function<bool(const std::string& path)>& use);

// A number as atoi reads it, within the limits of an int: a text that is none is 0.
int NumberOf(const std::string& text);
// Whether it is decimal digits with nothing but white space around them.
bool IsPlainNumber(std::string_view text);

// One thread at a time.
class TableDefinitions {
 public:
  // Parses the file, unless it is the one that the process parsed last; on failure logs the
  // parser's reason and returns false. The caller logs its own line after that. `file` must outlive
  // the object.
  bool Parse(const char* file);
  const char* file() const { return m_file; }

  // The text of the element at `path`; a missing element is logged and false.
  bool Read(const std::string& path, std::string& text) const;
  // The same for NumberOf the text. A text that is not digits alone is logged, since mid tables or
  // rows may go missing by it.
  bool Read(const std::string& path, int& number) const;

 private:
  const char* m_file = "";
  std::shared_ptr<const CXmlStream> m_xml;
};
