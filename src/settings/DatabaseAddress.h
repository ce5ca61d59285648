// Where the database is, and under which prefix valend has its keys there, as texts of the configuration.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Settings {

inline constexpr std::size_t maxDatabaseServerBytes = 1024;
inline constexpr std::size_t maxDatabasePrefixBytes = 128;

// What an address looks like, for people.
inline constexpr std::string_view databaseServerForm =
   "\"unix:///PATH\" or \"redis://[USER[:PASSWORD]@]HOST[:PORT]\", which may end in \"?\" and, "
   "separated by \"&\", "
   "\"db=N\", \"user=NAME\" and \"password-file=PATH\"";

// What is wrong with `server`, as it reads after its name: "has an unknown scheme; expected ...". Empty when it is
// valid. It never has the password.
std::string problemWithDatabaseServer( std::string_view server );

// The same for a prefix. It has no characters that are special in a pattern of keys.
std::string problemWithDatabasePrefix( std::string_view prefix );

// The address with "***" for its password, for logs and clients.
std::string withoutPassword( std::string server );

// "valen:" and the name of this host.
std::string databasePrefixOfSystem();

} // namespace Settings
