#include "valenctl/database/LinkRequests.h"

#include "database/Keys.h"

#include <algorithm>
#include <random>
#include <set>

namespace Valenctl {

namespace {

using State = LinkRequest::State;
using Clock = std::chrono::steady_clock;

// How many entries of a history are searched for the end of a shutdown, and for how long: the status and the history
// of a host are written apart, and other requests may have pushed it out.
constexpr char const * searchedEntries = "200";
constexpr std::chrono::seconds searchTime{ 1 };

// 32 hexadecimal digits that no other request has.
std::string newId() {
   std::random_device random;
   std::string id;
   for ( int word = 0; word < 4; ++word ) {
      char text[ 9 ];
      std::snprintf( text, sizeof text, "%08x", static_cast< unsigned >( random() ) );
      id += text;
   }
   return id;
}

std::string keyOf( LinkRequest const & request, std::string_view kind ) {
   return Valenctl::keyOf( *request.host, std::string( kind ) + request.interface );
}

} // namespace

LinkRequests::LinkRequests( DatabaseClient & client, std::vector< Chosen > const & chosen,
                            LinkOrder order, std::string const & by )
    : client_( client ), order_( std::move( order ) ), by_( by ) {
   for ( auto const & each : chosen ) {
      requests_.push_back( { each.host, each.interface, newId() } );
   }
}

std::vector< DatabaseClient::Command > LinkRequests::writing( LinkRequest const & request ) const {
   auto const want = keyOf( request, Database::Names::want );
   DatabaseClient::Command hash{ "HSET", want,      "link", order_.up ? "up" : "down",
                                 "id",   request.id };
   auto const add = [ & ]( char const * field, std::string const & value ) {
      hash.push_back( field );
      hash.push_back( value );
   };
   add( "by", by_ );
   if ( order_.reason ) {
      add( "reason", *order_.reason );
   }
   if ( order_.delayMs ) {
      add( "delay-ms", std::to_string( *order_.delayMs ) );
   }
   return { { "MULTI" }, { "DEL", want }, hash, { "EXEC" } };
}

void LinkRequests::write() {
   std::vector< DatabaseClient::Command > commands;
   for ( auto const & request : requests_ ) {
      for ( auto & command : writing( request ) ) {
         commands.push_back( std::move( command ) );
      }
   }
   client_.ask( commands );
}

void LinkRequests::poll( Changed const & changed ) {
   std::vector< LinkRequest * > followed;
   std::vector< DatabaseClient::Command > commands;
   for ( auto & request : requests_ ) {
      if ( !request.done ) {
         followed.push_back( &request );
         commands.push_back( { "HGETALL", keyOf( request, Database::Names::status ) } );
         commands.push_back( { "HGET", keyOf( request, Database::Names::want ), "id" } );
      }
   }
   auto const replies = client_.ask( commands );
   std::vector< LinkRequest * > ended;
   std::vector< DatabaseClient::Command > again;
   for ( std::size_t i = 0; i < followed.size(); ++i ) {
      auto & request = *followed[ i ];
      auto const & want = replies[ 2 * i + 1 ];
      if ( take( request, replies[ 2 * i ], want ) ) {
         changed( request );
      }
      if ( ( request.state == State::ended || request.state == State::replaced ) &&
           !request.done ) {
         ended.push_back( &request );
      } else if ( request.state == State::written && want.type == Database::Reply::Type::nothing ) {
         for ( auto & command :
               writing( request ) ) { // the server has lost it, for example by a restart
            again.push_back( std::move( command ) );
         }
      }
   }
   client_.ask( again );
   readRecords( ended );
   for ( auto * const request : ended ) {
      if ( !request->record.is_null() || Clock::now() - *request->endedAt > searchTime ) {
         request->state = request->record.is_null() ? request->state : State::ended;
         request->done = true;
         changed( *request );
      }
   }
}

// Sets a request right. Returns whether its state has changed, and there is something to say about it at once.
bool LinkRequests::take( LinkRequest & request, Database::Reply const & status,
                         Database::Reply const & want ) {
   auto const interface = interfaceOf( request.interface, status );
   if ( interface.id == request.id ) {
      bool const running = interface.result == "running";
      bool const isNew = request.state == State::written;
      request.result = interface.result;
      request.heldUntil = std::max( request.heldUntil, interface.heldUntil );
      if ( running ) {
         request.state = State::running;
         request.done = !order_.wait;
         return isNew;
      }
      if ( request.state != State::ended ) {
         request.state = State::ended;
         request.endedAt = Clock::now();
      }
      // Only a shutdown that ended by itself has a record that says more than the result.
      request.done = order_.up || request.result.starts_with( "rejected" );
      return request.done;
   }
   if ( interface.id.empty() && request.state == State::running ) {
      return false; // the server has lost the status, and the daemon is about to write it again
   }
   if ( request.state == State::running ) {
      // The daemon acts on a later request: the history has the end of this one.
      request.state = State::ended;
      request.result.clear();
      request.endedAt = Clock::now();
   } else if ( request.state == State::written && want.type != Database::Reply::Type::nothing &&
               want.text != request.id ) {
      request.state = State::replaced; // unless the history says that the daemon was faster
      request.endedAt = Clock::now();
   }
   return false;
}

// Searches the histories for the ends of shutdowns.
void LinkRequests::readRecords( std::vector< LinkRequest * > const & wanted ) {
   std::map< std::string, LinkRequest * > byId;
   std::set< std::string > histories;
   for ( auto * const request : wanted ) {
      byId[ request->id ] = request;
      histories.insert( keyOf( *request->host, Database::Names::history ) );
   }
   std::vector< DatabaseClient::Command > commands;
   for ( auto const & history : histories ) {
      commands.push_back( { "XREVRANGE", history, "+", "-", "COUNT", searchedEntries } );
   }
   for ( auto const & reply : client_.ask( commands ) ) {
      for ( auto const & entry : reply.items ) {
         auto fields = entry.items.size() == 2 ? fieldsIn( entry.items[ 1 ] ) : Database::Fields();
         if ( auto const found = byId.find( fields[ "id" ] ); found != byId.end() ) {
            auto record = safeJson( fields[ "record" ] );
            found->second->record = record.is_object() ? std::move( record ) : nullptr;
         }
      }
   }
}

std::size_t LinkRequests::pending() const noexcept {
   return static_cast< std::size_t >(
      std::count_if( requests_.begin(), requests_.end(),
                     []( LinkRequest const & request ) { return !request.done; } ) );
}

std::chrono::milliseconds LinkRequests::heldUntil() const noexcept {
   std::chrono::milliseconds latest{ 0 };
   for ( auto const & request : requests_ ) {
      latest = request.done ? latest : std::max( latest, request.heldUntil );
   }
   return latest;
}

} // namespace Valenctl
