// The command line. Every option is declared here and nowhere else; the help that CLI11 prints is
// made of these declarations.
#include "midtablectl/control.h"

#include <CLI/CLI.hpp>

#include "midtablectl/check.h"
#include "midtablectl/retry.h"
#include "midtablectl/setup/setup.h"
#include "midtablectl/setup/year_tables.h"
#include "midtablectl/status.h"
#include "midtablectl/why.h"
#include "midtablectl/why_all.h"

namespace ctl {

namespace {

constexpr char kFooter[] =
    "\nExit status: 0 fine, 1 there are findings, 2 could not look, 3 done in part.\nmidtablectl "
    "COMMAND --help has the options; man midtablectl has the rest.";

// Where the parser puts what the command line says.
struct Arguments {
  CheckOptions check;
  StatusOptions status;
  RetryOptions retry;
  SetupOptions setup;
  YearTablesOptions year_tables;
  std::string why;
  int watch = 2;  // seconds, for --watch without a number
};

// One function for each command: it declares the command with its options and returns it, so that
// somebody can ask afterwards whether it was given.
CLI::App* AddCheck(CLI::App& app, CheckOptions& options) {
  CLI::App* check = app.add_subcommand(
      "check",
      "Looks at the settings, the definitions, the spool and the server for what would make files "
      "fail, and says what to do. Loads a one-line probe from every folder into a scratch database "
      "WLAN_midtablectl, which it drops again. Run it as root or as the service's user.");
  check->add_flag("--offline", options.offline, "without the server");
  check->add_flag("--errors", options.errors_only,
                  "only what makes the service fail or lose rows, no warnings");
  check->add_option("--settings", options.settings, "look at this settings file instead")
      ->type_name("FILE");
  check
      ->add_option("--definitions", options.definitions,
                   "look at these table definitions instead, for instance before they are renamed "
                   "into place")
      ->type_name("FILE");
  return check;
}

CLI::App* AddStatus(CLI::App& app, Arguments& arguments) {
  CLI::App* status = app.add_subcommand(
      "status",
      "Shows for each database the files that wait, are loaded and failed, the rows in its mem "
      "tables, the speed of the last minute and the time to empty; with delivery=once also what "
      "the server works on and what holds files back. Status 1 when files failed or are held "
      "back.");
  status->add_option("--watch", arguments.watch, "look again every SECONDS (2)")
      ->expected(0, 1)
      ->check(CLI::Range(1, 3600))
      ->type_name("SECONDS");
  auto* json = status->add_flag("--json", arguments.status.json, "as a JSON object");
  status
      ->add_option(
          "--prometheus", arguments.status.prometheus,
          "write the figures to FILE, for a textfile collector; the file is replaced in one "
          "step")
      ->type_name("FILE")
      ->excludes(json);
  status
      ->add_option("--html", arguments.status.html,
                   "write a page for a browser to FILE, which is replaced in one step; the curves "
                   "are kept in FILE.history.json")
      ->type_name("FILE")
      ->excludes(json);
  status->add_option("--settings", arguments.status.settings, "take this settings file instead")
      ->type_name("FILE");
  return status;
}

CLI::App* AddWhy(CLI::App& app, std::string& file) {
  CLI::App* why = app.add_subcommand(
      "why",
      "Shows the run log's lines of the moment when a mem file failed, and what to do. Of a loaded "
      "file, .mid, those of the failed conversion of its rows; of one that waits, .dat, what holds "
      "it back. Without a file: the last failures and what is held back, by reason, the newest "
      "first. Status 1 when there is any.");
  why->add_option("file", file, "the .err, .mid or .dat file, or its bare name")->type_name("FILE");
  return why;
}

CLI::App* AddRetry(CLI::App& app, RetryOptions& options) {
  CLI::App* retry = app.add_subcommand(
      "retry",
      "Gives .err files their name .dat back, so that the service loads them again. Shows what it "
      "would do and asks. Never replaces a file or follows a link. Leaves alone what stands beside "
      "its .mid, and with --database and --all what by the run log may be loaded; where .mid and "
      "log are gone it cannot know.");
  auto* files = retry->add_option("files", options.files, "the .err files, or their bare names")
                    ->type_name("FILE");
  auto* database = retry
                       ->add_option("--database", options.database,
                                    "all .err files of the database with this ID")
                       ->type_name("ID");
  auto* all = retry->add_flag("--all", options.all, "all .err files of every database");
  retry->add_flag("--yes", options.yes, "do it without asking");
  files->excludes(database)->excludes(all);
  database->excludes(all);
  // The parser knows no "one of these three", so the missing one is looked for after the parsing.
  retry->callback([&options] {
    if (options.files.empty() && options.database.empty() && !options.all) {
      throw CLI::RequiredError("FILE, --database or --all");
    }
  });
  return retry;
}

// The administrator's password is no option on purpose: other users can read command lines.
void AddAdministrator(CLI::App& setup, SetupOptions& options) {
  setup
      .add_option("--admin-user", options.admin_user,
                  "who makes databases and logins on the server (root)")
      ->type_name("NAME");
  setup
      .add_option("--admin-defaults-file", options.admin_file,
                  "take the administrator's user and password from the group [client] of FILE; "
                  "otherwise root's local socket is tried, and a password is asked for")
      ->type_name("FILE");
}

CLI::App* AddSetup(CLI::App& app, SetupOptions& options) {
  CLI::App* setup = app.add_subcommand(
      "setup",
      "Makes what the service needs: folders, settings, definitions, login, databases, year "
      "tables. Shows every statement and file and asks first; leaves alone what exists; ends with "
      "check. Run it as root, again after a failure, and for each new device.");
  setup->add_option("--host", options.host, "of the database server (127.0.0.1)")
      ->type_name("HOST");
  setup->add_option("--port", options.port, "of the database server (3306)")
      ->check(CLI::Range(1, 65535))
      ->type_name("PORT");
  setup->add_option("--user", options.user, "the service's login (midtable)")->type_name("NAME");
  setup
      ->add_option("--login-host", options.login_host,
                   "from where that login may come, as the server sees it; % for anywhere")
      ->type_name("HOST");
  setup->add_option("--delivery", options.delivery, "the way of counting (once)")
      ->check(CLI::IsMember({std::string(kDeliveryOnce), std::string(kDeliveryNone)}));
  setup->add_option("--devices", options.devices, "their IDs, 8 hexadecimal digits each")
      ->type_name("ID");
  setup->add_option("--owner", options.owner, "whose the devices' folders are (as the spool's is)")
      ->type_name("USER");
  AddAdministrator(*setup, options);
  setup->add_flag("--reset-password", options.reset_password,
                  "give a login that is there the password of the settings, or a new one");
  auto* yes = setup->add_flag("--yes", options.yes, "do it without asking");
  setup->add_flag("--dry-run", options.dry_run, "show what would be done, and end")->excludes(yes);
  return setup;
}

CLI::App* AddYearTables(CLI::App& app, YearTablesOptions& options) {
  CLI::App* tables = app.add_subcommand(
      "year-tables",
      "Makes the year tables that are missing, of all devices, by the statements of "
      "/etc/morvan/year_tables.sql.");
  auto* year = tables->add_option("--year", options.year, "for that year")
                   ->check(CLI::Range(1970, 9999))
                   ->type_name("YYYY");
  auto* next = tables->add_flag("--next", options.next, "for the next one")->excludes(year);
  tables->add_flag("--dry-run", options.dry_run, "show what would be made, and end");
  tables->callback([year, next] {
    if (year->count() + next->count() == 0) throw CLI::RequiredError("--next or --year");
  });
  return tables;
}

}  // namespace

Status Control(int argc, const char* const* argv, Console& console) {
  Arguments arguments;
  CLI::App app("Sets up, checks, watches and mends the make mid table service.", "midtablectl");
  // Without a command there is nothing to do, and a silent success would look like a good check.
  app.require_subcommand(1);
  app.set_version_flag("--version", "midtablectl, version " MIDTABLE_VERSION);
  app.footer(kFooter);
  const CLI::App* check = AddCheck(app, arguments.check);
  const CLI::App* status = AddStatus(app, arguments);
  const CLI::App* why = AddWhy(app, arguments.why);
  const CLI::App* setup = AddSetup(app, arguments.setup);
  const CLI::App* year_tables = AddYearTables(app, arguments.year_tables);
  AddRetry(app, arguments.retry);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // Help and version end the parsing in this way too; their exit code is 0.
    return app.exit(error, console.out, console.err) == 0 ? Status::kFine : Status::kCouldNotLook;
  }
  if (*check) return Check(arguments.check, console);
  if (*status) {
    // The option is set by its presence, with or without a number.
    if (status->count("--watch") > 0) arguments.status.watch_seconds = arguments.watch;
    return ShowStatus(arguments.status, console);
  }
  if (*setup) return Setup(arguments.setup, console);
  if (*year_tables) return MakeYearTables(arguments.year_tables, console);
  if (*why) {
    // An empty name is a mistake of a script's, and no question for everything.
    return why->count("file") == 0 ? WhyAll(console) : Why(arguments.why, console);
  }
  return Retry(arguments.retry, console);
}

}  // namespace ctl
