// The histories of many hosts, as one.
#include "database/Keys.h"
#include "valenctl/database/HostCommands.h"
#include "valenctl/text/ShutdownText.h"

#include <algorithm>
#include <charconv>
#include <ostream>

namespace Valenctl {

namespace {

// How many entries are read at once.
constexpr char const * entriesAtOnce = "200";

struct Reading {
   Host const * host;
   std::string before = "+"; // the next entry to read, newest first
   bool done = false;
   std::vector< Json > records = {}; // newest first
};

bool isChosen( Json const & record, HistoryChoice const & choice ) {
   return choice.interfaces.empty() ||
          std::find( choice.interfaces.begin(), choice.interfaces.end(),
                     textField( record, "interface" ) ) != choice.interfaces.end();
}

// An entry is written when its shutdown has ended: after its request.
std::uint64_t timeOf( std::string const & entry ) {
   std::uint64_t milliseconds = 0;
   std::from_chars( entry.data(), entry.data() + entry.size(), milliseconds );
   return milliseconds;
}

// Takes a piece of a history. It is whole when no older entries are there or of interest.
void take( Reading & reading, Database::Reply const & reply, HistoryChoice const & choice ) {
   auto const since = static_cast< std::uint64_t >( choice.since.count() );
   for ( auto const & entry : reply.items ) {
      if ( entry.items.size() != 2 ) {
         continue;
      }
      auto const record = safeJson( fieldsIn( entry.items[ 1 ] )[ "record" ] );
      if ( record.is_object() && isChosen( record, choice ) &&
           numberField( record, "whenMs" ) >= since ) {
         reading.records.push_back( record );
      }
      reading.before = "(" + entry.items[ 0 ].text;
      reading.done = timeOf( entry.items[ 0 ].text ) < since;
   }
   auto const enough = choice.last ? static_cast< std::size_t >( *choice.last ) : SIZE_MAX;
   reading.done = reading.done || reply.items.empty() || reading.records.size() >= enough;
}

void read( DatabaseClient & client, std::vector< Reading > & readings,
           HistoryChoice const & choice ) {
   for ( ;; ) {
      std::vector< Reading * > unfinished;
      std::vector< DatabaseClient::Command > commands;
      for ( auto & reading : readings ) {
         if ( !reading.done ) {
            unfinished.push_back( &reading );
            commands.push_back( { "XREVRANGE", keyOf( *reading.host, Database::Names::history ),
                                  reading.before, "-", "COUNT", entriesAtOnce } );
         }
      }
      if ( unfinished.empty() ) {
         return;
      }
      auto const replies = client.ask( commands );
      for ( std::size_t i = 0; i < unfinished.size(); ++i ) {
         take( *unfinished[ i ], replies[ i ], choice );
      }
   }
}

// All records with their hosts, in the order of their requests; the last ones, as many as are wanted.
std::vector< Json > merged( std::vector< Reading > const & readings,
                            HistoryChoice const & choice ) {
   std::vector< Json > records;
   for ( auto const & reading : readings ) {
      for ( auto record = reading.records.rbegin(); record != reading.records.rend(); ++record ) {
         records.push_back( *record );
         records.back()[ "host" ] = reading.host->name;
      }
   }
   std::stable_sort( records.begin(), records.end(), []( Json const & a, Json const & b ) {
      return numberField( a, "whenMs" ) < numberField( b, "whenMs" );
   } );
   auto const enough = choice.last ? static_cast< std::size_t >( *choice.last ) : SIZE_MAX;
   if ( records.size() > enough ) {
      records.erase( records.begin(), records.end() - *choice.last );
   }
   return records;
}

} // namespace

Exit historyOfHosts( HostSession const & session, HistoryChoice const & choice ) {
   auto const hosts = findHosts( session.client, session.hosts );
   std::vector< Reading > readings;
   for ( auto const & host : hosts ) {
      readings.push_back( { &host } );
   }
   read( session.client, readings, choice );
   auto const records = merged( readings, choice );
   if ( !session.output.json() ) {
      session.output.out << historyText( { { "shutdowns", records } } );
      return Exit::done;
   }
   auto documents = Json::array();
   for ( auto const & host : hosts ) {
      auto own = Json::array();
      for ( auto const & record : records ) {
         if ( textField( record, "host" ) == host.name ) {
            own.push_back( record );
            own.back().erase( "host" );
         }
      }
      documents.push_back(
         { { "host", host.name }, { "stale", host.stale }, { "shutdowns", own } } );
   }
   session.output.out << indented( { { "hosts", documents } } ) << '\n';
   return Exit::done;
}

} // namespace Valenctl
