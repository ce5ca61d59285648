#include "valend/database/DatabaseClient.h"

#include "settings/Version.h"

#include <array>
#include <climits>
#include <unistd.h>

namespace Valend {

namespace {

std::string nowInMs() {
   using namespace std::chrono;
   return std::to_string(
      duration_cast< milliseconds >( system_clock::now().time_since_epoch() ).count() );
}

std::string hostName() {
   std::array< char, HOST_NAME_MAX + 1 > name{};
   return ::gethostname( name.data(), name.size() - 1 ) == 0 ? name.data() : "localhost";
}

} // namespace

DatabaseClient::DatabaseClient( Sources const & sources, Reader reader,
                                Database::Connection::Timing timing )
    : sources_( sources ), reader_( std::move( reader ) ), timing_( timing ), startMs_( nowInMs() ),
      host_( hostName() ), condition_( sources.conditions, "database" ),
      status_( sources.store, sources.feeder, sources.report, sources.loop.scheduler(),
               sources.loop.workQueue() ),
      history_( sources.loop.scheduler(), [ this ]( std::string const & why ) {
         if ( session_ ) {
            session_->historyProblem( why );
         }
      } ) {}

DatabaseClient::~DatabaseClient() {
   end();
}

void DatabaseClient::settingsAre( std::string const & server, std::string const & prefix ) {
   Place const place{ server, prefix };
   if ( place == place_ || ( server.empty() && place_.server.empty() ) ) {
      return;
   }
   place_ = place;
   end();
   if ( server.empty() ) {
      return reader_.clear();
   }
   reader_.restart( server, prefix );
   begin();
}

void DatabaseClient::begin() {
   try {
      auto const address = Database::Address::parse( place_.server );
      shownServer_ = address.text();
      session_ = std::make_unique< DatabaseSession >(
         sources_.loop, DatabaseSession::Options{ address, place_.prefix, timing_ }, history_,
         events() );
   } catch ( Database::InvalidAddress const & e ) { // the configuration accepts what this does not
      return condition_.raise( std::string( "database.server: " ) + e.what() );
   }
   for ( auto const & key : leases_ ) {
      session_->leases().wantedIs( key, true );
   }
   rejections_.outboxIs( &session_->outbox() );
   status_.outboxIs( &session_->outbox(), [ this ] {
      if ( !std::exchange( historyKnown_, true ) ) {
         history_.historyIs( sources_.controller.history() );
      }
      session_->startWriting();
   } );
}

void DatabaseClient::end() {
   status_.outboxIs( nullptr );
   rejections_.outboxIs( nullptr );
   session_ = nullptr;
   condition_.clear();
}

DatabaseSession::Events DatabaseClient::events() {
   return {
      .entityIs =
         [ this ]( std::string const & key, Database::Fields const & fields ) {
            rejections_.unreadableIs( key, "" );
            reader_.entityIs( key, fields );
         },
      .entityGone =
         [ this ]( std::string const & key ) {
            rejections_.unreadableIs( key, "" );
            reader_.entityGone( key );
         },
      .unreadable = [ this ]( std::string const & key,
                              std::string const & why ) { rejections_.unreadableIs( key, why ); },
      .complete = reader_.complete,
      .leaseIs = reader_.leaseIs,
      .alive = [ this ] { return alive(); },
      .problem = [ this ]( std::string const & why ) { problemIs( why ); } };
}

Database::Fields DatabaseClient::alive() const {
   return {
      { "version", Settings::version },
      { "boot-id", sources_.bootId },
      { "start-ms", startMs_ },
      { "host", host_ },
      { "daemon", sources_.daemon.json().dump( -1, ' ', false, Json::error_handler_t::replace ) } };
}

void DatabaseClient::problemIs( std::string const & why ) {
   condition_.update(
      why.empty() ? why
                  : "database " + shownServer_ + ": " + why +
                       "; what was read last stays active, and what is to be written waits (see "
                       "\"database\" in the troubleshooting guide)" );
}

void DatabaseClient::leaseWantedIs( std::string const & key, bool wanted ) {
   if ( wanted ) {
      leases_.insert( key );
   } else {
      leases_.erase( key );
   }
   if ( session_ ) {
      session_->leases().wantedIs( key, wanted );
   }
}

// That of a link that was set down outside again and again is in the stream once.
void DatabaseClient::ended( ShutdownRecord const & record, std::string const & request ) {
   status_.changed( record.interface ); // its last change may have been before
   auto const & history = sources_.controller.history();
   bool const repeated = !history.empty() && history.back().count > 1;
   if ( historyKnown_ && !repeated ) {
      history_.add( record, request );
   }
}

std::optional< DatabaseClient::Figures > DatabaseClient::figures() const {
   if ( !session_ ) {
      return std::nullopt;
   }
   return Figures{ session_->connected(), session_->reconnects(),
                   session_->outbox().pending() + history_.pending(), session_->entities(),
                   rejections_.count() };
}

} // namespace Valend
