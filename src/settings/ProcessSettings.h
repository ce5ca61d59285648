// The settings of the process, one row each. Everything that has to know them follows from the rows:
// reading the configuration files, the options of valend, "config show", what a reload reports, the
// man pages and the schema. docs/configuration.md is checked against them.
//
// To add a setting: add its row here, read it with ProcessConfig::value() where it is used, and
// describe it in docs/configuration.md.
#pragma once

#include "settings/DatabaseAddress.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Settings {

inline constexpr char const * defaultSocket = "/run/valen/valend.sock";
inline constexpr char const * defaultStateDirectory = "/var/lib/valen";

enum class SettingType {
   path,           // absolute or relative
   absolutePath,   // on the command line, a relative path starts at the working directory
   traceLevels,    // see platform/trace/TraceLevels.h
   group,          // by name or number
   milliseconds,   // 0 to 65535
   databaseServer, // see DatabaseAddress.h
   databasePrefix,
};

enum class SettingSource {
   filesAndCommandLine, // the command line takes precedence
   files,               // without an option: it may hold a secret, which a list of processes shows
   commandLine,
};

enum class TakesEffect {
   onReload,
   atNextStart,
};

struct ProcessSetting {
   std::string_view name;   // in the files; with a "." the key is inside a mapping: "trace.file"
   std::string_view option; // on the command line, after "--"; empty: none
   SettingType type;
   std::size_t maxBytes; // of the value, which has at least one byte
   SettingSource source = SettingSource::filesAndCommandLine;
   TakesEffect takesEffect = TakesEffect::atNextStart;
   std::string_view defaultValue = {};         // empty: none, or systemDefault()
   std::string_view defaultText = {};          // how systemDefault() finds it, for people
   std::string ( *systemDefault )() = nullptr; // the default of this system; empty: none
   std::string_view help;                      // one sentence without its period
   std::string_view details = {};              // further sentences, for the documents

   constexpr bool inFiles() const { return source != SettingSource::commandLine; }
   constexpr bool onCommandLine() const { return source != SettingSource::files; }
   // The default as documents show it; empty: none.
   constexpr std::string_view shownDefault() const {
      return defaultText.empty() ? defaultValue : defaultText;
   }
};

// The first directory of $STATE_DIRECTORY, which the service manager sets; else the usual one if it
// exists; else empty.
std::string stateDirectoryOfSystem();

// The longest path that the kernel takes, and the longest address of a Unix socket.
inline constexpr std::size_t maxPathBytes = 4095;
inline constexpr std::size_t maxSocketBytes = 107;

inline constexpr unsigned maxMilliseconds = 65535;

inline constexpr std::array processSettings{
   ProcessSetting{
      .name = "socket",
      .option = "socket",
      .type = SettingType::path,
      .maxBytes = maxSocketBytes,
      .defaultValue = defaultSocket,
      .help = "Unix socket at which valenctl and other clients connect",
   },
   ProcessSetting{
      .name = "netns-directory",
      .option = "netns-directory",
      .type = SettingType::absolutePath,
      .maxBytes = maxPathBytes,
      .help = "Directory of named network namespaces, searched after /run/netns",
   },
   ProcessSetting{
      .name = "state-directory",
      .option = "state-directory",
      .type = SettingType::absolutePath,
      .maxBytes = maxPathBytes,
      .defaultText = "$STATE_DIRECTORY, else /var/lib/valen if it exists",
      .systemDefault = stateDirectoryOfSystem,
      .help = "Directory in which shutdowns, published frames and the last valid configuration "
              "survive a restart",
      .details = "Without a state directory, a shutdown in progress is lost on restart.",
   },
   ProcessSetting{
      .name = "max-shutdown-delay-ms",
      .option = "max-shutdown-delay-ms",
      .type = SettingType::milliseconds,
      .maxBytes = 5,
      .takesEffect = TakesEffect::onReload,
      .defaultValue = "10000",
      .help = "Longest delay, in milliseconds, that a single request may ask for",
      .details =
         "A shutdown that asks for a longer one is rejected. The configured delay may be longer.",
   },
   ProcessSetting{
      .name = "metrics-file",
      .option = "metrics-file",
      .type = SettingType::absolutePath,
      .maxBytes = maxPathBytes,
      .help = "File to write metrics to, for a collector that reads files",
      .details = "Collectors usually expect a name that ends in \".prom\". The command "
                 "\"valenctl metrics\" prints the metrics in any case.",
   },
   ProcessSetting{
      .name = "trace.levels",
      .option = "trace",
      .type = SettingType::traceLevels,
      .maxBytes = maxPathBytes,
      .takesEffect = TakesEffect::onReload,
      .defaultValue = "*/0-1",
      .help = "Trace levels by unit, such as ConfigSm/0-1,Intf*/0, of which the later wins",
      .details = "Set by the option, trace lines also go to standard error.",
   },
   ProcessSetting{
      .name = "trace.file",
      .option = "trace-file",
      .type = SettingType::path,
      .maxBytes = maxPathBytes,
      .help = "File to append trace lines to, instead of standard error",
   },
   ProcessSetting{
      .name = "trace.ring",
      .option = "trace-ring",
      .type = SettingType::path,
      .maxBytes = maxPathBytes,
      .help = "File that holds the trace ring, so that it can be read after a crash",
      .details = "The file of the previous run is kept with \".previous\" added to its name. "
                 "Without a file, the ring is in memory.",
   },
   ProcessSetting{
      .name = "database.server",
      .option = "",
      .type = SettingType::databaseServer,
      .maxBytes = maxDatabaseServerBytes,
      .source = SettingSource::files,
      .takesEffect = TakesEffect::onReload,
      .help =
         "Redis server from which valend takes configuration, frames and requests, and to which "
         "it writes its status",
      .details = "Without it, valend uses no database.",
   },
   ProcessSetting{
      .name = "database.prefix",
      .option = "",
      .type = SettingType::databasePrefix,
      .maxBytes = maxDatabasePrefixBytes,
      .source = SettingSource::files,
      .takesEffect = TakesEffect::onReload,
      .defaultText = "valen:HOSTNAME",
      .systemDefault = databasePrefixOfSystem,
      .help = "What the keys of this valend begin with in the database, before a colon",
   },
   ProcessSetting{
      .name = "read-group",
      .option = "read-group",
      .type = SettingType::group,
      .maxBytes = 255,
      .source = SettingSource::commandLine,
      .defaultValue = "valen",
      .help = "Group, by name or number, whose members have read-only access",
   },
   ProcessSetting{
      .name = "admin-group",
      .option = "admin-group",
      .type = SettingType::group,
      .maxBytes = 255,
      .source = SettingSource::commandLine,
      .defaultValue = "valen-admin",
      .help = "Group, by name or number, whose members have full access, like root",
   },
};

// What is wrong with `value` for the setting, as it reads after the place of an error:
// "socket has 108 bytes; expected a path of 1 to 107 bytes". Empty when it is valid.
std::string problemWith( ProcessSetting const & setting, std::string const & value );

// The value as logs and clients may see it: without a password.
std::string shown( ProcessSetting const & setting, std::string const & value );

// A row by its name. A name without a row does not compile.
class SettingName {
 public:
   template < std::size_t size > consteval SettingName( char const ( &name )[ size ] ) {
      while ( processSettings.at( row_ ).name != name ) {
         ++row_;
      }
   }

   constexpr std::size_t row() const { return row_; }

 private:
   std::size_t row_ = 0;
};

// The values that are given for the settings, by a file or the command line.
class ProcessConfig {
 public:
   // What is given for the setting, and nothing when it is left at its default.
   std::optional< std::string > const & given( ProcessSetting const & setting ) const;
   std::optional< std::string > const & given( SettingName name ) const {
      return given_[ name.row() ];
   }

   // What is given for the setting, else its default; empty when it has none.
   std::string value( ProcessSetting const & setting ) const;
   std::string value( SettingName name ) const { return value( processSettings[ name.row() ] ); }

   // Requires a valid value: see problemWith().
   void valueIs( ProcessSetting const & setting, std::string value );
   void valueIs( SettingName name, std::string value ) {
      given_[ name.row() ] = std::move( value );
   }

   // These values, where `other` gives none.
   ProcessConfig overriddenBy( ProcessConfig const & other ) const;

   bool operator==( ProcessConfig const & ) const = default;

 private:
   std::array< std::optional< std::string >, processSettings.size() > given_;
};

} // namespace Settings
