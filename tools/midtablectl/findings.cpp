#include "midtablectl/findings.h"

#include <map>

#include "midtablectl/text.h"

namespace ctl {

namespace {

// A thousand files may fail for one reason: so many of them are shown, the others counted.
constexpr std::size_t kShownAlike = 8;

// Colours a text, where the console can show colours. The codes are those of a terminal: 1 is bold,
// 31 red, 33 yellow.
struct Paint {
  bool on;
  std::string operator()(const char* code, const std::string& text) const {
    return on ? std::string("\x1b[") + code + "m" + text + "\x1b[0m" : text;
  }
};

void PrintFinding(const Finding& finding, Console& console) {
  const Paint paint{console.terminal};
  const std::string where =
      OneLine(finding.where) + (finding.line > 0 ? ":" + std::to_string(finding.line) : "");
  console.out << paint("1", where) << ": "
              << (finding.is_error ? paint("31", "error") : paint("33", "warning")) << ": "
              << OneLine(finding.what) << " -> " << OneLine(finding.fix) << '\n';
}

}  // namespace

// Findings with the same remedy count as alike. The notes come last, because they ask for nothing.
Status Findings::Print(Console& console, bool errors_only) const {
  std::map<std::string, std::size_t> alike;  // how many findings have a remedy
  std::size_t errors = 0;
  std::size_t warnings = 0;
  for (const Finding& finding : m_all) {
    if (errors_only && !finding.is_error) continue;
    ++(finding.is_error ? errors : warnings);
    if (++alike[finding.fix] <= kShownAlike) PrintFinding(finding, console);
  }
  for (const auto& [fix, count] : alike) {
    if (count > kShownAlike) {
      console.out << "and " << count - kShownAlike << " more like these -> " << OneLine(fix)
                  << '\n';
    }
  }
  for (const Finding& note : m_notes) {
    if (errors_only) break;
    console.out << OneLine(note.where) << ':' << note.line << ": note: " << OneLine(note.what)
                << '\n';
  }
  if (errors + warnings == 0) {
    console.out << (errors_only ? "No errors." : "Nothing found.") << '\n';
    return Status::kFine;
  }
  console.out << Count(errors, "error");
  if (!errors_only) console.out << ", " << Count(warnings, "warning");
  console.out << '\n';
  return Status::kFindings;
}

}  // namespace ctl
