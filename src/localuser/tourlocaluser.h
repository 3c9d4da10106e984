// The local user registry: which mobile users are local, who the enterprise users are, and the
// checksum of each device's city; and the rewriting of mem files that needs to know the first.
//
// A user is named in the data by a 32-bit code: the top two bits select the first two digits of an
// 11-digit mobile number (13, 14, 15, 18), the low 30 bits are the other nine; 0 means no user. A
// user is local when the first seven digits, the number block, stand in LOGFILE.
//
// Life: constructed, init() starts the watcher; the owner clears g_nMainRun and calls WaitExit()
// before destruction. An object that is destroyed while its watcher runs ends the process.
//
// The watcher looks at LOGFILE, then at CITYCRCFILE, then asks the server for the enterprise users,
// and pauses 10 seconds: so a server that does not answer keeps no file from being read again. Each
// source is read in the first round and when it has changed: a file by its inode, size or time in
// nanoseconds, the table by its checksum. A changed file that is still being written to, seen by a
// second look a second later, waits for the next round.
//
// Threads: the owner's thread calls ParseMemfile, isLocalUser, GetUserName and GetCityCRC at any
// time, and any thread calls Flags; everything that uses the database connection belongs to the
// watcher while it runs. No operation holds two locks. Failures are logged where they happen, under
// the unit's name.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "config/dbinfo.h"
#include "db/SqlBase.h"
#include "localuser/block_set.h"
#include "localuser/flagged_records.h"
#include "support/mutex.h"
#include "support/paths.h"
#include "support/run_state.h"

// Local number blocks: a CSV file whose first column holds one block a row.
inline const std::string LOGFILE = paths::kLocalNumberBlocks;
// Device states: an INI file with a section per device, which names the device's city.
inline const std::string CITYCRCFILE = paths::kDeviceStates;
// The configuration database, and its table of enterprise users.
inline constexpr char DBNAME[] = "vqcfg";
inline constexpr char kEnterpriseUserTable[] = "EnterpriseUser";

class TourLocalUser {
 public:
  // The unit's name in the run log.
  static constexpr char kUnit[] = "tourlocaluser";

  // The first two digits of the mobile numbers that have user codes, by the top two bits of a code.
  static constexpr std::array<int, 4> kPrefixes = {13, 14, 15, 18};

  // Makes a back end for the given credentials; null when there is none.
  using BackEndFactory = std::function<std::unique_ptr<CSqlBase>(const MYSQLAUTH&)>;
  using Pause = std::function<void(int seconds)>;

  // The back end is the one that the credentials select, or what the factory makes; an empty
  // factory leaves the enterprise users alone, of whom no flag speaks.
  // `pause` is what the watcher does for so many seconds, at most until the service is to stop.
  TourLocalUser();
  explicit TourLocalUser(BackEndFactory make_back_end, Pause pause = sleep_i);
  ~TourLocalUser() = default;
  TourLocalUser(const TourLocalUser&) = delete;
  TourLocalUser& operator=(const TourLocalUser&) = delete;
  TourLocalUser(TourLocalUser&&) = delete;
  TourLocalUser& operator=(TourLocalUser&&) = delete;

  // Starts the watcher, unless it runs. Always 1; "creat thread failed" is logged and the object
  // goes on without a watcher when no thread can be had.
  int init();
  // Waits until the watcher has looked at its two files once, which is all that flags and city
  // values need, for `seconds` at most; returns at once when no watcher runs or g_nMainRun is 0.
  void AwaitFirstRound(int seconds) const;
  // Waits for the watcher's end, which comes about a second after g_nMainRun was cleared, or with
  // the pause's end (plus the rest of the round it is in). Returns at once when none runs.
  void WaitExit();

  // Replaces the number blocks by column 0 of the CSV file's rows, all at once: lookups during the
  // reading are answered from the blocks before. 1, or 0 when the file cannot be opened; there are
  // no blocks then. Of a file that cannot be read to its end, which is logged, the blocks up to
  // that place count. There are none before the first call.
  int LoadConfig(const std::string& path) EXCLUDES(m_localLock);
  // LoadConfig(LOGFILE).
  int Update();
  // Whether a user code can stand for a number of this block: seven digits, of which the first two
  // are among kPrefixes.
  static bool CanHoldUsers(std::string_view block);
  // 1 when the block (the first seven characters of the number) is local, else 0. A name of seven
  // characters or fewer is logged and looked up as it is.
  int isLocalUser(const std::string& user_name) EXCLUDES(m_localLock);
  // The mobile number of a code: 11 digits, or 12 where the low 30 bits exceed nine digits. A code
  // of 0 ends the process.
  std::string GetUserName(unsigned int user_crc) const;

  // The local flag of the records of a user code.
  LocalFlag FlagOf(std::uint32_t code) EXCLUDES(m_localLock, m_enterpriseLock);
  // The same for many records, by the number blocks of this moment: no lock is taken for a record.
  // May be called by any thread, at any time.
  FlaggedRecords::FlagOf Flags() const EXCLUDES(m_localLock);
  // Rewrites a mem file: copies the records of `in_path` to a new file `out_path` (another name; an
  // existing file is replaced), each followed by the local flag of its user, as FlaggedRecords has
  // it, in one write per record. Always 1.
  //
  // The copy has the mode and, as far as allowed, the owner of the input. There is no copy when the
  // input is not a readable regular file (a link included), or when any read or write failed: the
  // caller then still has the whole input. An input that does not exist leaves an empty copy.
  int ParseMemfile(const std::string& in_path, const std::string& out_path)
      EXCLUDES(m_localLock, m_enterpriseLock);
  // How many lines that held something the last ParseMemfile left out.
  unsigned int lostLines() const { return m_lostLines; }

  // 0 when the credentials' type is "mysql", otherwise 1, also before the first OpenDB.
  int GetDBType() const;
  // Connects as far as needed, making the back end on the first call, and switches to DBNAME: 0, or
  // -1. A connection that the server dropped is closed first, so that this is a new one.
  int OpenDB();
  // Closes the connection; its result. Ends the process before the first OpenDB.
  int CloseDB();
  // A number that changes with the table's content, 0 on any failure. It is the server's checksum
  // on MySQL, else the count of rows; the very first call does not know the server yet and counts.
  unsigned int GetTableCheckSum(const char* table);
  // The query that GetEnterpriseUser puts, on the current database. With a prefix, a database's
  // name and a dot, it can be put from anywhere.
  static std::string EnterpriseUserQuery(std::string_view prefix = {});
  // Adds to the enterprise users what the table says; known codes keep their text. 1, or 0 when the
  // database cannot be opened or asked.
  int GetEnterpriseUser() EXCLUDES(m_enterpriseLock);

  // Replaces the city checksums by those of CITYCRCFILE: 0, or -1 and the old ones stay.
  int updateCityCRC() EXCLUDES(m_localLock);
  // Copies the city checksums into `out`, after updateCityCRC() when `refresh` is not 0. Maps
  // "WLAN_" and the device's section name to the GetCRCString of "/city/". Always 0.
  int GetCityCRC(std::map<std::string, std::string>& out, int refresh) EXCLUDES(m_localLock);
  // The CRC-32 of the bytes as an unsigned decimal number.
  static std::string GetCRCString(const std::string& text);

  // The watcher, with the object as its argument; ends once g_nMainRun is 0. Null.
  static void* check_thread(void* self);

 private:
  std::shared_ptr<const BlockSet> Blocks() const EXCLUDES(m_localLock);
  bool MakeBackEnd();
  void CheckFiles();
  void CheckEnterpriseUsers();

  std::map<std::string, std::string> m_mapCityCrc GUARDED_BY(m_localLock);
  mutable Mutex m_localLock;
  Mutex m_enterpriseLock;
  [[maybe_unused]] Mutex m_spareLock;
  // Replaced as a whole and never changed, so that it is used without the lock.
  std::shared_ptr<const BlockSet> m_localBlocks GUARDED_BY(m_localLock) =
      std::make_shared<const BlockSet>();
  std::map<unsigned int, std::string> m_mapEnterpriseUser GUARDED_BY(m_enterpriseLock);
  const std::map<unsigned int, int> m_mapPrefixCode{
      {0, kPrefixes[0]}, {1, kPrefixes[1]}, {2, kPrefixes[2]}, {3, kPrefixes[3]}};
  unsigned int m_lostLines = 0;
  const BackEndFactory m_makeBackEnd;
  const Pause m_pause;
  std::unique_ptr<CSqlBase> m_pDB;
  MYSQLAUTH m_auth;
  std::atomic<bool> m_sawFiles{false};
  std::thread m_thread;  // not joinable when no watcher runs
};
