// The words by which this tool recognises what the service did, all in one place.
//
// They are the service's own words, spelled a second time. If somebody rewords a message in src/,
// the commands `why` and `retry` would no longer recognise it, and nothing would tell. Therefore
// tools/check-messages reads every constant of the types below, wherever in this folder it stands,
// and fails when src/ has no such text. It also fails when a source of this folder compares the
// text of a log entry with a literal instead of with one of these constants.
#pragma once

namespace ctl {

// One message of the run log, recognised by the unit and the level of its line and by the beginning
// of its format. Exactly one message of src/ begins so. The first "%s" of that message may be
// spelled out here, when the values that it takes stand as literals in the same source.
struct MessageBeginning {
  const char* unit;
  const char* level;
  const char* text;
};

// The same for a whole format, where the values matter or the end of the message.
struct MessageFormat {
  const char* unit;
  const char* level;
  const char* format;
};

// A text that the named file below src/ has in one of its string literals, anywhere or at the
// beginning, and which gets into the log as a part of some message.
struct SourceText {
  const char* file;
  const char* text;
};
struct SourceBeginning {
  const char* file;
  const char* text;
};

// A unit and a level, as they stand at the beginning of a line of the run log.
struct LogUnit {
  const char* name;
};
struct LogLevel {
  const char* name;
};

// The beginning of what docs/messages.md says under "What to do".
struct AdviceBeginning {
  const char* text;
};

inline constexpr LogLevel kErrorLevel{"ErrLog"};
inline constexpr LogLevel kAlarmLevel{"AlarmLog"};
// The thread that watches the registry's sources writes under this unit at any time, between the
// lines of the engine.
inline constexpr LogUnit kRegistryUnit{"tourlocaluser"};

// --- Where the road of one file ends and something else begins.

inline constexpr LogUnit kProgramUnit{"main"};
inline constexpr MessageBeginning kEngineStarts{"Midtable", "InfoLog", "current db is "};
inline constexpr MessageBeginning kNothingToLoad{"Midtable", "DebugLog", "no file to load"};
inline constexpr MessageBeginning kFileLoaded{"Midtable", "DebugLog", "load table ("};
inline constexpr MessageBeginning kLoadFailed{"Midtable", "ErrLog", "ret ("};
inline constexpr MessageBeginning kTableNotMade{"Midtable", "ErrLog", "table (%s) create failed"};
inline constexpr MessageBeginning kOldRowsNotRemoved{"Midtable", "ErrLog",
                                                     "table (%s) still holds converted rows"};

// --- Why a database or, on Oracle, its user was not to be had. No file is named in these lines.

inline constexpr MessageFormat kDatabaseNotLookedUp{"Midtable", "ErrLog",
                                                    "db %s not looked up error %s"};
inline constexpr MessageFormat kDatabaseNotMade{"Midtable", "ErrLog", "create db %s error %s"};
inline constexpr MessageBeginning kUserNotAltered{"Midtable", "ErrLog", "alter db "};
inline constexpr MessageBeginning kUserNotGranted{"Midtable", "ErrLog", "grant db "};
inline constexpr MessageBeginning kUserRefused{"Midtable", "ErrLog", "user "};

// The server was asked whether it has a table; the question is the first value. A load ends with
// this line, a conversion goes on to say that it failed.
inline constexpr MessageFormat kTableNotLookedUp{"Midtable", "ErrLog",
                                                 "sql (%s) failed ret (%d) (%s) "};

// --- The conversion of a mem table. The first two have its database and its name as values; the
// next two name the file whose load asked for the conversion or, where nobody knows the file, the
// mem table as "database.table".

inline constexpr MessageFormat kMemTableConverted{"Midtable", "InfoLog",
                                                  "convert memtable %s.%s ok!"};
inline constexpr MessageFormat kMemTableNotConverted{"Midtable", "ErrLog",
                                                     "convert memtable %s.%s failed!"};
inline constexpr MessageFormat kConversionGivenUp{"Midtable", "ErrLog",
                                                  "convert %s error, ignore it"};
inline constexpr MessageFormat kConversionPutOff{"Midtable", "AlarmLog",
                                                 "convert %s put off, the connection is lost"};
inline constexpr MessageBeginning kCommitted{"Midtable", "InfoLog", "commit ok!"};
// A statement between two values was refused. This one empties the mem table after the commit.
inline constexpr MessageFormat kStatementRefused{"Midtable", "ErrLog", "sql %s error %s"};
inline constexpr SourceBeginning kEmptying{"midtable/conversion.cpp", "truncate table "};

// --- Mem tables that hold rows over a stop and a start; the value is "database.table".

inline constexpr MessageFormat kRowsOfEarlierRun{"Midtable", "InfoLog",
                                                 "memtable %s holds rows of an earlier run"};
inline constexpr MessageFormat kRowsLeft{
    "Midtable", "AlarmLog", "memtable %s is left filled, converted after the next start"};
inline constexpr MessageFormat kConvertedRowsLeft{
    "Midtable", "ErrLog",
    "memtable %s is left with converted rows, empty it before the next start"};

// --- The rewriting of a file of kind F.

inline constexpr MessageBeginning kRewritingBegins{"Midtable", "DebugLog",
                                                   "before convert file size ("};
inline constexpr MessageFormat kLineDropped{"tourlocaluser", "DebugLog",
                                            "file %s line %d not correct, ignore it"};
// The values: the file, and how many of its lines were of each sort, the dropped ones last.
inline constexpr MessageFormat kFileRewritten{
    "tourlocaluser", "InfoLog", "file %s local %u visitors %u without user %u dropped %u"};

// --- A file that failed although its rows are loaded: it is the last value.

inline constexpr MessageFormat kLoadedAllTheSame{
    "Midtable", "ErrLog", "table %s not dropped, the rows of file (%s) are loaded"};

// --- Where every row is counted exactly once (delivery=once). The first value of the first two is
// what waits: the server, a table or a file.

inline constexpr MessageFormat kHeldBack{"Midtable", "ErrLog", "%s held back, %zu files wait: %s"};
inline constexpr MessageFormat kGoesOn{"Midtable", "InfoLog", "%s goes on"};
// A file that is at fault itself, and in what.
inline constexpr MessageFormat kFileSetAside{"Midtable", "ErrLog", "file (%s) set aside: %s"};
inline constexpr MessageFormat kDeliveryStarts{"Midtable", "InfoLog", "delivery is once"};

// --- Statements and what the server said of them.

// A load that failed: the last value is the statement with the server's words.
inline constexpr MessageFormat kLoadRefused{"Midtable", "ErrLog", "ret (%d) (%s)"};
// A file whose name cannot be put into a statement.
inline constexpr MessageFormat kNameRefused{"Midtable", "ErrLog",
                                            "file (%s) name is not safe in a statement, refused"};
// A statement that failed is logged between these two texts, the server's words behind the second.
inline constexpr SourceBeginning kStatementBegins{"db/MysqlBase.cpp", "execute "};
inline constexpr SourceText kServerWordsFollow{"db/MysqlBase.cpp", " failed, error:"};
// Messages that repeat a failed statement have the server's words behind this text.
inline constexpr SourceText kServerWordsFollowToo{"midtable/conversion.cpp", " error "};
// What all lines have in common that hold words of the server.
inline constexpr SourceText kErrorWord{"db/MysqlBase.cpp", "error"};
// The path of the file follows.
inline constexpr SourceBeginning kLoadStatement{"tables/dialect.cpp", "load data infile \""};
inline constexpr SourceText kNotConnected{"db/MysqlBase.cpp", "not connected"};
inline constexpr SourceBeginning kTemplateFault{"tables/sql_template.cpp", "template "};

// --- Why files are held back or set aside (delivery=once), where it is not the server that says
// so.

inline constexpr SourceText kLocalLoadsOff{"delivery/connection.cpp",
                                           "local_infile of the server is off"};
inline constexpr SourceText kNoRollback{"delivery/feed.cpp", ", which cannot be rolled back"};
inline constexpr SourceBeginning kUnknownKind{"delivery/plan.cpp",
                                              "no Name in /root/Mem is kind ("};
inline constexpr SourceBeginning kDefinitionFault{"delivery/plan.cpp", "xml file "};
inline constexpr SourceBeginning kChangedWhileRead{"delivery/batch.cpp",
                                                   "changed while it was read"};

// What the parser of XML files puts before its complaint: the number of the line follows.
inline constexpr SourceBeginning kParserLine{"config/XmlStream.cpp", "line "};

// --- The manual of messages.

// A message whose advice begins so has nothing to tell beyond the lines around it.
inline constexpr AdviceBeginning kSeeOtherLine{"See the line"};

}  // namespace ctl
