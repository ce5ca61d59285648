#include "valend/database/StatusWriter.h"

#include "database/Keys.h"

#include <cstdlib>

namespace Valend {

namespace {

// The end of a delay is computed from the time that remains. What differs by less is the same end.
constexpr S64 sameEndMs = 100;

char const * yesOrNo( bool value ) {
   return value ? "yes" : "no";
}

std::string number( Json const & json, char const * member ) {
   return std::to_string( json.at( member ).get< U64 >() );
}

std::string frameCount( Json const & interface ) {
   U64 count = 0;
   for ( auto const & agent : interface.at( "frames" ) ) {
      count += agent.at( "count" ).get< U64 >();
   }
   return std::to_string( count );
}

} // namespace

StatusWriter::StatusWriter( Store const & store, Feeder const & feeder, StatusReport const & report,
                            Quill::Ptr< Gantry::TaskScheduler > scheduler, Gantry::WorkQueue & work,
                            Clock clock )
    : clock_( std::move( clock ) ),
      model_( store, feeder, report, scheduler, work, [ this ] { news(); } ),
      slices_( work, std::move( scheduler ), "database status" ) {}

S64 StatusWriter::realClock() {
   using namespace std::chrono;
   return duration_cast< milliseconds >( system_clock::now().time_since_epoch() ).count();
}

void StatusWriter::outboxIs( Database::Outbox * outbox, std::function< void() > whole ) {
   outbox_ = outbox;
   whole_ = std::move( whole );
   seen_ = 0;
   stale_.clear();
   if ( !outbox ) {
      heldUntilMs_.clear();
   }
   model_.neededIs( outbox != nullptr );
   if ( outbox && model_.complete() ) {
      slices_.post( [ this ] { news(); } );
   }
   for ( auto const & [ interface, result ] : results_ ) {
      stale_.push_back( interface );
   }
}

void StatusWriter::resultIs( std::string const & interface, std::string const & id,
                             std::string const & result ) {
   if ( id.empty() && result.empty() ) {
      results_.erase( interface );
   } else {
      results_[ interface ] = { id, result };
   }
   if ( outbox_ ) {
      stale_.push_back( interface );
      workLater();
   }
}

void StatusWriter::news() {
   if ( !outbox_ || !model_.complete() ) {
      return;
   }
   auto const changes = model_.changes( seen_ );
   seen_ = model_.last();
   model_.forget( seen_ );
   stale_.insert( stale_.end(), changes.changed.begin(), changes.changed.end() );
   stale_.insert( stale_.end(), changes.gone.begin(), changes.gone.end() );
   workLater();
}

void StatusWriter::workLater() {
   if ( !std::exchange( working_, true ) ) {
      slices_.post( [ this ] { work(); } );
   }
}

void StatusWriter::work() {
   working_ = false;
   slices_.begin();
   while ( outbox_ && !stale_.empty() && slices_.goesOn() ) {
      auto const interface = std::move( stale_.front() );
      stale_.pop_front();
      write( interface );
   }
   if ( outbox_ && !stale_.empty() ) {
      return workLater();
   }
   if ( outbox_ && whole_ && model_.complete() ) {
      std::exchange( whole_, nullptr )();
   }
}

void StatusWriter::write( std::string const & interface ) {
   outbox_->hashIs( Database::nameOf( { Database::Kind::status, interface } ),
                    fieldsOf( interface ) );
}

// Empty for one that is not configured, and of which nothing was requested.
Database::Fields StatusWriter::fieldsOf( std::string const & interface ) {
   Database::Fields fields;
   if ( auto const * const found = model_.find( interface ) ) {
      auto json = *found;
      fields = {
         { "link", json.at( "link" ).get< std::string >() },
         { "ready", yesOrNo( json.at( "ready" ).get< bool >() ) },
         { "not-ready",
           json.at( "notReady" ).is_null() ? "" : json.at( "notReady" ).get< std::string >() },
         { "shutting-down", yesOrNo( json.at( "shuttingDown" ).get< bool >() ) },
         { "held-until-ms", heldUntil( interface, json.at( "remainingMs" ) ) },
         { "frames", frameCount( json ) },
         { "shutdowns", number( json, "shutdowns" ) },
         { "aborted", number( json, "aborts" ) },
         { "failed", number( json, "failed" ) },
      };
      json.erase( "remainingMs" );
      fields[ "interface" ] = json.dump( -1, ' ', false, Json::error_handler_t::replace );
   } else {
      heldUntilMs_.erase( interface );
   }
   if ( auto const result = results_.find( interface ); result != results_.end() ) {
      fields[ "id" ] = result->second.id;
      fields[ "result" ] = result->second.text;
   }
   return fields;
}

std::string StatusWriter::heldUntil( std::string const & interface, Json const & remainingMs ) {
   if ( remainingMs.is_null() ) {
      heldUntilMs_.erase( interface );
      return "";
   }
   auto const end = clock_() + remainingMs.get< S64 >();
   auto const [ found, isNew ] = heldUntilMs_.try_emplace( interface, end );
   if ( std::abs( found->second - end ) > sameEndMs ) {
      found->second = end;
   }
   return std::to_string( found->second );
}

} // namespace Valend
