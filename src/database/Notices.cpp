#include "database/Notices.h"

#include "database/Keys.h"
#include "database/Scan.h"

namespace Database {

Notices::Notices( Valen::Linux::EventLoop & loop, Connection::Options options, std::string prefix,
                  std::vector< std::string > const & names, std::chrono::milliseconds noticeTimeout,
                  Events events )
    : prefix_( std::move( prefix ) ),
      channels_( "__keyspace@" + std::to_string( options.address.database ) + "__:" ),
      testKey_( withPrefix( prefix_, Names::test ) ), noticeTimeout_( noticeTimeout ),
      events_( std::move( events ) ),
      connection_(
         loop, std::move( options ),
         { .connected = [ this ] { up(); },
           .lost = [ this ]( std::string const & why ) { lost( why ); },
           .notice = [ this ]( std::string const & channel,
                               std::string const & text ) { notice( channel, text ); } } ),
      timeout_( loop.scheduler(), "database notices", [ this ] {
         whyIs(
            "the server does not tell of changed keys; its setting notify-keyspace-events lacks "
            "some of \"Khgx\" (run: redis-cli config set notify-keyspace-events Khgx)" );
      } ) {
   for ( auto const & name : names ) {
      patterns_.push_back( globOf( channels_ + withPrefix( prefix_, name ) ) + "*" );
   }
   patterns_.push_back( globOf( channels_ + testKey_ ) );
}

void Notices::up() {
   awaited_ = patterns_.size();
   for ( auto const & pattern : patterns_ ) {
      connection_.command( { "PSUBSCRIBE", pattern },
                           [ this ]( Reply const & reply ) { subscription( reply ); } );
   }
}

void Notices::subscription( Reply const & reply ) {
   if ( reply.lost() ) {
      return;
   }
   if ( reply.failed() ) {
      return whyIs( "PSUBSCRIBE: " + reply.text );
   }
   if ( --awaited_ == 0 ) {
      subscribed_ = true;
      why_.clear();
      events_.subscribed();
   }
}

void Notices::lost( std::string const & why ) {
   subscribed_ = false;
   timeout_.stop();
   whyIs( why );
}

void Notices::notice( std::string const & channel, std::string const & text ) {
   if ( !channel.starts_with( channels_ ) ) {
      return;
   }
   auto const key = channel.substr( channels_.size() );
   if ( key == testKey_ ) {
      heardSet_ = heardSet_ || text == "hset";
      heardDel_ = heardDel_ || text == "del";
      if ( heardSet_ && heardDel_ ) {
         timeout_.stop();
         whyIs( "" );
      }
   } else if ( auto const name = withoutPrefix( prefix_, key ) ) {
      events_.changed( std::string( *name ) );
   }
}

void Notices::test( Connection & writer ) {
   if ( !subscribed_ || timeout_.running() ) {
      return;
   }
   heardSet_ = heardDel_ = false;
   writer.command( { "HSET", testKey_, "by", "valend" },
                   [ this ]( Reply const & reply ) { written( reply ); } );
   writer.command( { "DEL", testKey_ }, [ this ]( Reply const & reply ) { written( reply ); } );
}

void Notices::written( Reply const & reply ) {
   if ( reply.failed() && subscribed_ ) {
      whyIs( "cannot test whether the server tells of changed keys: " + reply.text );
   } else if ( reply.ok() && subscribed_ && !( heardSet_ && heardDel_ ) && !timeout_.running() ) {
      timeout_.start( noticeTimeout_ );
   }
}

void Notices::whyIs( std::string why ) {
   if ( std::exchange( why_, std::move( why ) ) != why_ ) {
      events_.state();
   }
}

} // namespace Database
