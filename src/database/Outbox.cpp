#include "database/Outbox.h"

#include "database/Keys.h"
#include "database/Transaction.h"

namespace Database {

namespace {

constexpr std::size_t keysPerTurn = 125; // some 500 commands

} // namespace

Outbox::Outbox( Valen::Linux::EventLoop & loop, Connection & connection, std::string prefix,
                std::vector< std::string > names, Problem problem )
    : connection_( connection ), prefix_( std::move( prefix ) ), problem_( std::move( problem ) ),
      scan_( connection, prefix_, std::move( names ),
             { .found = [ this ]( std::string const & name ) { found( name ); },
               .part = [ this ] { pumpLater(); },
               .failed = [ this ]( std::string const & why ) { refused( "", why ); } } ),
      backoff_( firstRetry, lastRetry ), retry_( loop.scheduler(), "database outbox",
                                                 [ this ] {
                                                    scan_.next();
                                                    pump();
                                                 } ),
      posted_( loop.workQueue(), "database outbox" ) {}

void Outbox::hashIs( std::string const & name, Fields fields ) {
   auto & entry = *entries_.try_emplace( name ).first;
   auto & value = entry.second;
   if ( value.version && value.fields == fields ) {
      return;
   }
   pending_ += value.version == value.confirmed;
   value.fields = std::move( fields );
   value.version = ++version_;
   enqueue( entry );
}

void Outbox::hashDel( std::string const & name ) {
   if ( entries_.contains( name ) ) {
      hashIs( name, {} );
   }
}

void Outbox::up() {
   queue_.clear();
   pending_ = entries_.size();
   for ( auto & entry : entries_ ) {
      entry.second.confirmed = 0;
      entry.second.queued = false;
      enqueue( entry );
   }
   retry_.stop();
   scan_.start();
}

void Outbox::lost() {
   scan_.stop();
   retry_.stop();
   problemIs( "", "" ); // the loss is another one
}

// --- Writing -------------------------------------------------------------------------------------

void Outbox::enqueue( Entries::value_type & entry ) {
   if ( connection_.up() && !std::exchange( entry.second.queued, true ) ) {
      queue_.push_back( entry.first );
      pumpLater();
   }
}

void Outbox::pumpLater() {
   if ( !std::exchange( pumping_, true ) ) {
      posted_.post( [ this ] {
         pumping_ = false;
         pump();
      } );
   }
}

// One pipeline. The next one leaves in another turn.
void Outbox::pump() {
   if ( retry_.running() ) {
      return;
   }
   for ( std::size_t count = 0; count < keysPerTurn && !queue_.empty() && connection_.canTake();
         ++count ) {
      auto const entry = entries_.find( queue_.front() );
      queue_.pop_front();
      if ( entry != entries_.end() ) {
         entry->second.queued = false;
         write( *entry );
      }
   }
   if ( connection_.canTake() ) {
      if ( queue_.empty() ) {
         scan_.next();
      } else {
         pumpLater();
      }
   }
}

void Outbox::write( Entries::value_type & entry ) {
   auto const & [ name, value ] = entry;
   ++writes_;
   auto const key = withPrefix( prefix_, name );
   std::vector< Command > commands{ { "DEL", key } };
   if ( !value.fields.empty() ) {
      auto & set = commands.emplace_back( Command{ "HSET", key } );
      for ( auto const & [ field, text ] : value.fields ) {
         set.insert( set.end(), { field, text } );
      }
   }
   runTogether( connection_, commands,
                [ this, name = name, version = value.version ](
                   std::string const & error, auto const & ) { written( name, version, error ); } );
}

void Outbox::written( std::string const & name, U64 version, std::string const & error ) {
   auto const entry = entries_.find( name );
   if ( entry == entries_.end() ) {
      return;
   }
   if ( !error.empty() ) {
      enqueue( *entry );
      return refused( withPrefix( prefix_, name ) + ": ", error );
   }
   auto & value = entry->second;
   pending_ -= value.version == version && value.confirmed != version;
   value.confirmed = version;
   if ( pending_ == 0 ) {
      backoff_.reset();
      problemIs( "", "" );
   }
   if ( value.fields.empty() && value.version == version ) {
      entries_.erase( entry );
   }
}

// A key of ours that the server has.
void Outbox::found( std::string const & name ) {
   if ( !entries_.contains( name ) ) {
      auto & entry = *entries_.try_emplace( name ).first; // whose absence is to be written
      entry.second.version = ++version_;
      ++pending_;
      enqueue( entry );
   }
}

void Outbox::refused( std::string const & what, std::string const & error ) {
   if ( !retry_.running() ) {
      retry_.start( backoff_.take() );
   }
   problemIs( what, error );
}

// Said once, however many keys it concerns.
void Outbox::problemIs( std::string const & what, std::string const & error ) {
   if ( std::exchange( error_, error ) != error ) {
      problem_( what + error );
   }
}

} // namespace Database
