// Where the database is, and under which prefix valend has its keys there, as texts of the configuration.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Settings {

inline constexpr std::size_t maxDatabaseServerBytes = 1024;
inline constexpr std::size_t maxDatabasePrefixBytes = 128;

// What is wrong with `server`, as it reads after its name: "has no valid address: the port is not ...". Empty when
// it is valid (database/address/Address.h). It never has the password.
std::string problemWithDatabaseServer( std::string const & server );

// The same for a prefix. It has no characters that are special in a pattern of keys.
std::string problemWithDatabasePrefix( std::string_view prefix );

// `server`, valid or empty, without its password: for logs and clients.
std::string withoutPassword( std::string const & server );

// "valen:" and the name of this host.
std::string databasePrefixOfSystem();

} // namespace Settings
