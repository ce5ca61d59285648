#include "valend/database/DatabaseSession.h"

#include "database/Keys.h"

#include <algorithm>

namespace Valend {

namespace {

constexpr char const * connectionName = "valend";

Database::Mirror::Options mirrorOptions( DatabaseSession::Options const & options ) {
   Database::Mirror::Options mirror;
   mirror.connection.address = options.address;
   mirror.connection.name = connectionName;
   mirror.connection.timing = options.timing;
   mirror.prefix = options.prefix;
   mirror.names.assign( std::begin( Database::readNames ), std::end( Database::readNames ) );
   return mirror;
}

Database::Connection::Options writerOptions( DatabaseSession::Options const & options ) {
   return { .address = options.address,
            .name = std::string( connectionName ) + "-writer",
            .timing = options.timing };
}

} // namespace

DatabaseSession::DatabaseSession( Valen::Linux::EventLoop & loop, Options const & options,
                                  HistoryWriter & history, Events events )
    : events_( std::move( events ) ), history_( history ),
      writer_( loop, writerOptions( options ),
               { .connected = [ this ] { writerUp(); },
                 .lost = [ this ]( std::string const & why ) { writerLost( why ); },
                 .ready = [ this ] { writerReady(); } } ),
      outbox_( loop, writer_, options.prefix,
               { std::string( Database::Names::status ), std::string( Database::Names::rejected ) },
               [ this ]( std::string const & why ) { problemIs( Part::outbox, why ); } ),
      leases_(
         loop, writer_,
         [ this ]( std::string const & key, bool exists ) { events_.leaseIs( key, exists ); } ),
      alive_(
         loop.scheduler(), writer_, options.prefix, [ this ] { return events_.alive(); },
         [ this ] { emptied(); },
         [ this ]( std::string const & why ) { problemIs( Part::alive, why ); } ),
      mirror_(
         loop, mirrorOptions( options ),
         { .entityIs = events_.entityIs,
           .entityGone = events_.entityGone,
           .unreadable = events_.unreadable,
           .complete = events_.complete,
           .problem = [ this ]( std::string const & why ) { problemIs( Part::mirror, why ); } } ) {
   history_.connectionIs( &writer_, options.prefix );
   mirror_.start();
}

DatabaseSession::~DatabaseSession() {
   history_.connectionIs( nullptr, "" );
}

U64 DatabaseSession::reconnects() const noexcept {
   return mirror_.reconnects() + writer_.connects() - ( writer_.connects() > 0 );
}

// The sign of life is written last, and tells that the rest is true.
void DatabaseSession::writerUp() {
   problemIs( Part::writer, "" );
   writeAgain();
   leases_.up();
   alive_.up();
}

void DatabaseSession::writeAgain() {
   outbox_.up();
   history_.up();
}

void DatabaseSession::emptied() {
   writeAgain();
   mirror_.readAgain();
}

void DatabaseSession::writerLost( std::string const & why ) {
   outbox_.lost();
   history_.lost();
   alive_.lost();
   problemIs( Part::alive, "" );
   problemIs( Part::writer, why );
}

void DatabaseSession::writerReady() {
   leases_.ready();
   history_.ready();
   outbox_.ready();
}

void DatabaseSession::problemIs( Part part, std::string const & why ) {
   problems_[ static_cast< std::size_t >( part ) ] = why;
   auto const first = std::find_if( problems_.begin(), problems_.end(),
                                    []( auto const & each ) { return !each.empty(); } );
   auto const & problem = first == problems_.end() ? std::string() : *first;
   if ( std::exchange( problem_, problem ) != problem ) {
      events_.problem( problem );
   }
}

} // namespace Valend
