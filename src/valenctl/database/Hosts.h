// What the daemons of many hosts have written to the database.
#pragma once

#include "database/Fields.h"
#include "valenctl/database/DatabaseClient.h"
#include "valenctl/text/JsonFields.h"

#include <map>

namespace Valenctl {

// An interface, as its daemon has last written it.
struct HostInterface {
   Json interface;                           // the API's type Interface; null: it is not configured
   std::string id;                           // of the last request that the daemon acted on
   std::string result;                       // what became of it
   std::chrono::milliseconds heldUntil{ 0 }; // since 1970; 0: it is not held
};

struct Host {
   std::string name;
   std::string prefix; // of its keys
   bool stale = true; // its daemon has not written for some time: the rest may not be true any more
   Json daemon =
      Json::object(); // the API's answer to Status, without the interfaces; of a stale host empty
   std::map< std::string, HostInterface > interfaces = {}; // by name
};

// A host that was asked for is not in the database, or the database has no hosts.
class NoSuchHost : public std::runtime_error {
 public:
   using runtime_error::runtime_error;
};

// What is written to a host's keys.
std::string keyOf( Host const & host, std::string_view name );

// The hosts by their names, or all when `names` is empty, without their interfaces; sorted by name. Throws
// NoSuchHost.
std::vector< Host > findHosts( DatabaseClient & client, std::vector< std::string > const & names );

// Looks again which of the hosts are stale.
void readAlive( DatabaseClient & client, std::vector< Host > & hosts );

// Replaces the interfaces of the hosts by what is there now.
void readInterfaces( DatabaseClient & client, std::vector< Host > & hosts );

// The interface that a hash of a status describes. One that is not configured, and of which something was requested, has
// a result and a null.
HostInterface interfaceOf( std::string const & name, Database::Reply const & hash );

// What is left until then, at least 0.
std::int64_t msUntil( std::chrono::milliseconds sinceEpoch );

// For each host, in the same order, a list of {"key", "why"}: what it rejects of what was written to the database.
std::vector< Json > readRejected( DatabaseClient & client, std::vector< Host > const & hosts );

// A hash or an entry of a stream, as its fields; of any other reply none.
Database::Fields fieldsIn( Database::Reply const & reply );

// JSON that a daemon has written, without control characters in its texts: a terminal would follow them. Null if it
// is no JSON.
Json safeJson( std::string const & text );
std::string safeText( std::string text );

// What to do about a stale host: "rtr1 is stale: ...".
std::string staleText( Host const & host );

// The same for programs: what all documents say of a host.
Json documentOf( Host const & host );

} // namespace Valenctl
