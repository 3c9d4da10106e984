// What the table definition file says of one mem table: how it is made, and which statements turn
// its rows into rows of mid tables.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "config/XmlStream.h"
#include "support/file_identity.h"
#include "tables/dialect.h"

// One mid table that is fed from a mem table, its statements filled.
struct MidTarget {
  std::string name;      // full name
  std::string database;  // where it is looked for; empty for a year table, which is not
  std::string create;
  std::string convert;
  std::string fallback;  // tried where `convert` fails; may be empty
};

struct Plan {
  std::vector<std::string> mem_creates;
  std::vector<MidTarget> targets;
};

enum class PlanResult {
  kReady,
  kUnknownKind,  // the file is sound and has no mem table of this kind
  kFaulty,       // the definitions are at fault
};

// The file as it was at one moment. Any thread.
class Definitions {
 public:
  // Reads the file.
  explicit Definitions(const Dialect& dialect);

  // Whether the file is still the one that was read.
  bool IsCurrent() const;
  // The plan for the mem table of that name in `database`; `error` says why a plan is not ready.
  PlanResult MakePlan(const std::string& mem_table, const std::string& database, Plan& plan,
                      std::string& error) const;

 private:
  bool ReadText(const std::string& path, std::string& text, std::string& error) const;
  bool ReadCount(const std::string& parent, int& count, std::string& error) const;
  bool FillAt(const std::string& path, const TemplateValues& values, std::string& statement,
              std::string& error) const;
  bool ReadTarget(const std::string& node, const ConversionInput& input,
                  const std::string& database, const std::string& kind, Plan& plan,
                  std::string& error) const;

  const Dialect& m_dialect;
  const std::optional<FileIdentity> m_identity;  // before the reading; nothing: no file
  CXmlStream m_xml;
  std::string m_error;  // why the file cannot be used; empty when it can
};
