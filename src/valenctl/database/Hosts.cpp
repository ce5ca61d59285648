#include "valenctl/database/Hosts.h"

#include "database/Keys.h"
#include "database/Scan.h"

#include <algorithm>
#include <charconv>
#include <set>

namespace Valenctl {

namespace {

constexpr std::string_view usualPrefix = "valen:";

std::string hostOf( std::string const & prefix ) {
   return prefix.starts_with( usualPrefix ) ? prefix.substr( usualPrefix.size() ) : prefix;
}

bool isPrintable( std::string const & text ) {
   return !text.empty() && safeText( text ) == text;
}

void makeSafe( Json & json ) {
   if ( json.is_string() ) {
      json = safeText( json.get< std::string >() );
   }
   if ( json.is_structured() ) {
      for ( auto & element : json ) {
         makeSafe( element );
      }
   }
}

// The names of all keys of a kind ("status:") without the kind, for each host in the same order.
std::vector< std::set< std::string > >
namesOf( DatabaseClient & client, std::vector< Host > const & hosts, std::string_view kind ) {
   std::map< std::string_view, std::size_t > byPrefix;
   for ( std::size_t i = 0; i < hosts.size(); ++i ) {
      byPrefix[ hosts[ i ].prefix ] = i;
   }
   auto const middle = ":" + std::string( kind );
   auto const pattern =
      ( hosts.size() == 1 ? Database::globOf( hosts.front().prefix ) : "*" ) + middle + "*";
   std::vector< std::set< std::string > > names( hosts.size() );
   std::string cursor = "0";
   do {
      auto const reply = client.askOne( { "SCAN", cursor, "MATCH", pattern, "COUNT", "1000" } );
      if ( reply.items.size() != 2 ) {
         throw std::runtime_error( "the database answers SCAN with something else" );
      }
      cursor = reply.items[ 0 ].text;
      for ( auto const & key : reply.items[ 1 ].items ) {
         std::string_view const text = key.text;
         auto const end = text.find( middle );
         auto const host = byPrefix.find( text.substr( 0, end ) );
         if ( end != text.npos && host != byPrefix.end() ) {
            names[ host->second ].insert( key.text.substr( end + middle.size() ) );
         }
      }
   } while ( cursor != "0" );
   return names;
}

// Reads the hashes of a kind: calls `take( index of the host, name, reply )` for each that exists.
template < class Take >
void readHashes( DatabaseClient & client, std::vector< Host > const & hosts, std::string_view kind,
                 Take const & take ) {
   auto const names = namesOf( client, hosts, kind );
   std::vector< DatabaseClient::Command > commands;
   for ( std::size_t i = 0; i < hosts.size(); ++i ) {
      for ( auto const & name : names[ i ] ) {
         commands.push_back( { "HGETALL", keyOf( hosts[ i ], std::string( kind ) + name ) } );
      }
   }
   auto const replies = client.ask( commands );
   auto reply = replies.begin();
   for ( std::size_t i = 0; i < hosts.size(); ++i ) {
      for ( auto const & name : names[ i ] ) {
         if ( !reply->items.empty() ) { // else it was removed meanwhile
            take( i, name, *reply );
         }
         ++reply;
      }
   }
}

} // namespace

std::string keyOf( Host const & host, std::string_view name ) {
   return Database::withPrefix( host.prefix, name );
}

std::vector< Host > findHosts( DatabaseClient & client, std::vector< std::string > const & names ) {
   std::map< std::string, Host > known;
   for ( auto const & member :
         client.askOne( { "SMEMBERS", std::string( Database::hostsKey ) } ).items ) {
      auto const name = hostOf( member.text );
      if ( isPrintable( name ) ) {
         known[ name ] = { .name = name, .prefix = member.text };
      }
   }
   if ( known.empty() ) {
      throw NoSuchHost( "no valend has ever connected to the database " + client.url() +
                        ": does a configuration have \"database:\" with this server?" );
   }
   std::vector< Host > hosts;
   for ( auto const & [ name, host ] : known ) {
      if ( names.empty() || std::find( names.begin(), names.end(), name ) != names.end() ) {
         hosts.push_back( host );
      }
   }
   for ( auto const & name : names ) {
      if ( !known.contains( name ) ) {
         std::string all;
         for ( auto const & each : known ) {
            all += ( all.empty() ? "" : ", " ) + each.first;
         }
         throw NoSuchHost( "no host \"" + name + "\" in the database; known hosts: " + all );
      }
   }
   readAlive( client, hosts );
   return hosts;
}

void readAlive( DatabaseClient & client, std::vector< Host > & hosts ) {
   std::vector< DatabaseClient::Command > commands;
   for ( auto const & host : hosts ) {
      commands.push_back( { "HGETALL", keyOf( host, Database::Names::alive ) } );
   }
   auto const replies = client.ask( commands );
   for ( std::size_t i = 0; i < hosts.size(); ++i ) {
      auto fields = fieldsIn( replies[ i ] );
      hosts[ i ].stale = fields.empty();
      auto daemon = safeJson( fields[ "daemon" ] );
      hosts[ i ].daemon = daemon.is_object() ? std::move( daemon ) : Json::object();
   }
}

void readInterfaces( DatabaseClient & client, std::vector< Host > & hosts ) {
   for ( auto & host : hosts ) {
      host.interfaces.clear();
   }
   readHashes( client, hosts, Database::Names::status,
               [ & ]( std::size_t host, std::string const & name, Database::Reply const & hash ) {
                  auto interface = interfaceOf( name, hash );
                  if ( !interface.interface.is_null() ) {
                     hosts[ host ].interfaces[ safeText( name ) ] = std::move( interface );
                  }
               } );
}

HostInterface interfaceOf( std::string const & name, Database::Reply const & hash ) {
   auto fields = fieldsIn( hash );
   HostInterface result{ nullptr, fields[ "id" ], safeText( fields[ "result" ] ) };
   auto const & text = fields[ "interface" ];
   if ( text.empty() ) {
      return result;
   }
   result.interface = safeJson( text );
   if ( !result.interface.is_object() ) {
      result.interface = { { "link", safeText( fields[ "link" ] ) },
                           { "notReady", "its status in the database cannot be read" } };
   }
   result.interface[ "name" ] = safeText( name );
   auto const & until = fields[ "held-until-ms" ];
   std::int64_t milliseconds = 0;
   std::from_chars( until.data(), until.data() + until.size(), milliseconds );
   if ( milliseconds > 0 ) {
      result.heldUntil = std::chrono::milliseconds( milliseconds );
      result.interface[ "remainingMs" ] = msUntil( result.heldUntil );
   }
   return result;
}

std::int64_t msUntil( std::chrono::milliseconds sinceEpoch ) {
   auto const now = std::chrono::floor< std::chrono::milliseconds >(
      std::chrono::system_clock::now().time_since_epoch() );
   return std::max< std::int64_t >( 0, ( sinceEpoch - now ).count() );
}

std::vector< Json > readRejected( DatabaseClient & client, std::vector< Host > const & hosts ) {
   std::vector< Json > rejected( hosts.size(), Json::array() );
   readHashes(
      client, hosts, Database::Names::rejected,
      [ & ]( std::size_t host, std::string const & name, Database::Reply const & hash ) {
         rejected[ host ].push_back(
            { { "key", safeText( name ) }, { "why", safeText( fieldsIn( hash )[ "why" ] ) } } );
      } );
   return rejected;
}

Database::Fields fieldsIn( Database::Reply const & reply ) {
   return Database::fieldsOf( reply ).value_or( Database::Fields() );
}

Json safeJson( std::string const & text ) {
   auto json = Json::parse( text, nullptr, false );
   if ( json.is_discarded() ) {
      return nullptr;
   }
   makeSafe( json );
   return json;
}

std::string safeText( std::string text ) {
   for ( std::size_t i = 0; i < text.size(); ++i ) {
      auto const byte = static_cast< unsigned char >( text[ i ] );
      if ( byte < 0x20 || byte == 0x7f ) {
         text[ i ] = '?';
      } else if ( byte >= 0x80 && byte < 0xa0 && i &&
                  text[ i - 1 ] == '\xc2' ) { // U+0080 to U+009F
         text[ i - 1 ] = text[ i ] = '?';
      }
   }
   return text;
}

std::string staleText( Host const & host ) {
   return host.name +
          " is stale: its valend has not written to the database for more than 5 s; check there "
          "that valend runs, and that \"valenctl status\" has no condition \"database\"";
}

Json documentOf( Host const & host ) {
   auto document = host.daemon;
   document[ "host" ] = host.name;
   document[ "prefix" ] = host.prefix;
   document[ "stale" ] = host.stale;
   return document;
}

} // namespace Valenctl
