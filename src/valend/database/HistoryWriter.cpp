#include "valend/database/HistoryWriter.h"

#include "database/Keys.h"
#include "database/Transaction.h"
#include "valend/shutdown/ShutdownJson.h"

#include <algorithm>
#include <charconv>
#include <memory>

namespace Valend {

namespace {

// In the stream, and here.
constexpr std::size_t longestHistory = History::limit;

} // namespace

HistoryWriter::HistoryWriter( Quill::Ptr< Gantry::TaskScheduler > scheduler, Problem problem )
    : problem_( std::move( problem ) ), backoff_( Database::firstRetry, Database::lastRetry ),
      retry_( std::move( scheduler ), "database history", [ this ] { askNewest(); } ) {}

void HistoryWriter::historyIs( History::Records const & history ) {
   records_.clear();
   given_ = confirmed_ = 0;
   std::vector< ShutdownRecord const * > records;
   for ( auto const & record : history ) {
      records.push_back( &record );
   }
   std::stable_sort( records.begin(), records.end(),
                     []( auto const * a, auto const * b ) { return endOf( *a ) < endOf( *b ); } );
   for ( auto const * const record : records ) {
      remember( *record, "" );
   }
}

// What the record itself says, so that it is the same after a restart.
S64 HistoryWriter::endOf( ShutdownRecord const & record ) {
   auto const when =
      std::chrono::floor< std::chrono::milliseconds >( record.when.time_since_epoch() );
   return ( when + record.total ).count();
}

void HistoryWriter::add( ShutdownRecord const & record, std::string const & request ) {
   remember( record, request );
   pump();
}

void HistoryWriter::remember( ShutdownRecord const & record, std::string const & request ) {
   Id id{ endOf( record ) };
   if ( !records_.empty() &&
        id <= records_.back().id ) { // in the same millisecond, or the clock was set back
      id = { records_.back().id.ms, records_.back().id.number + 1 };
   }
   records_.push_back(
      { id, record.interface, record.endingText(), request,
        toJson( record ).dump( -1, ' ', false, nlohmann::json::error_handler_t::replace ) } );
   if ( records_.size() > longestHistory ) {
      records_.pop_front();
      given_ -= given_ > 0;
      confirmed_ -= confirmed_ > 0;
   }
}

// --- The connection ------------------------------------------------------------------------------

void HistoryWriter::connectionIs( Database::Connection * connection, std::string const & prefix ) {
   lost();
   connection_ = connection;
   key_ = Database::withPrefix( prefix, Database::Names::history );
   confirmed_ = 0;
}

void HistoryWriter::up() {
   askNewest();
}

void HistoryWriter::lost() {
   ++session_;
   asked_ = false;
   given_ = confirmed_;
   retry_.stop();
   problemIs( "" ); // the loss is another one
}

void HistoryWriter::askNewest() {
   asked_ = false;
   ++session_; // what is outstanding is of no interest
   auto const length = std::make_shared< S64 >( 0 );
   connection_->command( { "XLEN", key_ }, [ length ]( Database::Reply const & reply ) {
      *length = reply.type == Database::Reply::Type::number ? reply.number : 0;
   } );
   connection_->command( { "XREVRANGE", key_, "+", "-", "COUNT", "1" },
                         [ this, length, session = session_ ]( Database::Reply const & reply ) {
                            if ( session != session_ ) {
                               return;
                            }
                            if ( reply.failed() ) {
                               refused( reply.text );
                            } else if ( reply.type == Database::Reply::Type::list ) {
                               streamIs( idIn( reply ), *length );
                            }
                         } );
}

// Of the only entry in the reply; zero without an entry.
HistoryWriter::Id HistoryWriter::idIn( Database::Reply const & newest ) {
   Id id;
   if ( !newest.items.empty() && !newest.items[ 0 ].items.empty() ) {
      auto const & text = newest.items[ 0 ].items[ 0 ].text;
      auto const * const end = text.data() + text.size();
      auto const ms = std::from_chars( text.data(), end, id.ms );
      if ( ms.ptr != end ) {
         std::from_chars( ms.ptr + 1, end, id.number );
      }
   }
   return id;
}

void HistoryWriter::streamIs( Id newest, S64 length ) {
   auto const first = std::find_if( records_.begin(), records_.end(),
                                    [ & ]( auto const & record ) { return record.id > newest; } );
   auto known = first - records_.begin();
   if ( length < known ) {
      connection_->command( { "DEL", key_ }, []( Database::Reply const & ) {} );
      known = 0;
   }
   given_ = confirmed_ = static_cast< std::size_t >( known );
   asked_ = true;
   pump();
}

void HistoryWriter::pump() {
   while ( asked_ && connection_ && connection_->canTake() && given_ < records_.size() ) {
      auto const & record = records_[ given_++ ];
      connection_->command(
         { "XADD", key_, "MAXLEN", std::to_string( longestHistory ), record.id.text(), "interface",
           record.interface, "ending", record.ending, "id", record.request, "record", record.json },
         [ this, id = record.id, session = session_ ]( Database::Reply const & reply ) {
            if ( session == session_ ) {
               added( id, reply );
            }
         } );
   }
}

void HistoryWriter::added( Id id, Database::Reply const & reply ) {
   if ( reply.failed() ) {
      return refused( reply.text );
   }
   if ( reply.ok() ) {
      confirmed_ += confirmed_ < records_.size() && records_[ confirmed_ ].id == id;
      backoff_.reset();
      problemIs( "" );
   }
}

// What has become of the others is asked for after a pause.
void HistoryWriter::refused( std::string const & why ) {
   ++session_;
   asked_ = false;
   given_ = confirmed_;
   retry_.start( backoff_.take() );
   problemIs( key_ + ": " + why );
}

void HistoryWriter::problemIs( std::string const & why ) {
   if ( std::exchange( why_, why ) != why ) {
      problem_( why );
   }
}

} // namespace Valend
