#include "database/Mirror.h"

#include "database/Keys.h"

#include <algorithm>

namespace Database {

namespace {

constexpr std::size_t commandsAtOnce = 500;
constexpr std::size_t namesAtOnce = 2 * commandsAtOnce; // no more are found while so many wait
// A pass over a large server takes no more than a part of the time.
constexpr int comparePart = 50;
constexpr int pollPart = 10;

Connection::Options readerOptions( Mirror::Options const & options ) {
   auto connection = options.connection;
   connection.name += "-reader";
   connection.limits.replyBytes = options.entityBytes;
   connection.limits.outstandingCommands = commandsAtOnce;
   return connection;
}

Connection::Options noticesOptions( Mirror::Options const & options ) {
   auto connection = options.connection;
   connection.name += "-notices";
   return connection;
}

std::size_t sizeOf( std::string const & name, Fields const & fields ) {
   auto size = name.size() + sizeof( Fields );
   for ( auto const & [ field, value ] : fields ) {
      size += field.size() + value.size() + 2 * sizeof( std::string );
   }
   return size;
}

} // namespace

Mirror::Mirror( Valen::Linux::EventLoop & loop, Options options, Events events )
    : loop_( loop ), options_( std::move( options ) ), events_( std::move( events ) ),
      reader_( loop, readerOptions( options_ ),
               { .connected = [ this ] { readerUp(); },
                 .lost = [ this ]( std::string const & why ) { readerLost( why ); },
                 .ready = [ this ] { pump(); } } ),
      scan_( reader_, options_.prefix, options_.names,
             { .found = [ this ]( std::string const & name ) { found( name ); },
               .part = [ this ] { proceed(); },
               .failed = [ this ]( std::string const & why ) { failed( why ); } } ),
      notices_( loop, noticesOptions( options_ ), options_.prefix, options_.names,
                options_.noticeTimeout,
                { .subscribed =
                     [ this ] {
                        whole_ = false;
                        updateProblem();
                        begin( Extent::values );
                     },
                  .changed = [ this ]( std::string const & name ) { enqueue( name, For::notice ); },
                  .state = [ this ] { noticesChanged(); } } ),
      tick_( loop.scheduler(), "database mirror", [ this ] { tick(); } ),
      posted_( loop.workQueue(), "database mirror" ) {}

void Mirror::start() {
   reader_.start();
}

std::map< std::string, Fields > Mirror::content() const {
   std::map< std::string, Fields > content;
   for ( auto const & [ name, entity ] : entities_ ) {
      if ( entity.fields ) {
         content.emplace( name, *entity.fields );
      }
   }
   return content;
}

U64 Mirror::reconnects() const noexcept {
   auto const again = []( U64 connects ) { return connects ? connects - 1 : 0; };
   return again( reader_.connects() ) + again( notices_.connects() );
}

// --- The connections -----------------------------------------------------------------------------

void Mirror::readerUp() {
   readerWhy_.clear();
   whole_ = false;
   notices_.start(); // the first time; not before, as a server may have room for one client only
   if ( notices_.subscribed() ) {
      begin( Extent::values );
   } else {
      tickLater(); // notices first; without them after a while
   }
   updateProblem();
}

void Mirror::readerLost( std::string const & why ) {
   scan_.stop();
   tick_.stop();
   ++pass_;
   phase_ = Phase::idle;
   whole_ = false;
   queue_.clear();
   queued_.clear();
   readerWhy_ = why;
   updateProblem();
}

void Mirror::noticesChanged() {
   updateProblem();
   if ( reader_.up() && phase_ == Phase::idle ) {
      // What has changed before they worked was not told.
      return notices_.working() ? begin( Extent::values ) : tickLater();
   }
}

void Mirror::updateProblem() {
   auto const & problem = !readerWhy_.empty()    ? readerWhy_
                          : !readingWhy_.empty() ? readingWhy_
                                                 : notices_.why();
   if ( std::exchange( problem_, problem ) != problem ) {
      events_.problem( problem );
   }
}

// --- The pass over everything --------------------------------------------------------------------

void Mirror::begin( Extent extent ) {
   if ( !reader_.up() ) {
      return;
   }
   tick_.stop();
   ++pass_;
   left_ = 0;
   seen_.clear();
   phase_ = Phase::scanning;
   extent_ = extent;
   began_ = loop_.scheduler()->now();
   scan_.start();
   notices_.test( reader_ );
}

void Mirror::found( std::string const & name ) {
   seen_.insert( name );
   if ( seen_.size() > options_.entities ) {
      return failed( "there are more than " + std::to_string( options_.entities ) + " keys below " +
                     options_.prefix );
   }
   if ( extent_ == Extent::values || !entities_.contains( name ) ) {
      enqueue( name, For::pass );
   }
}

void Mirror::failed( std::string const & why ) {
   scan_.stop();
   ++pass_;
   phase_ = Phase::idle;
   whole_ = false;
   readingWhy_ = why;
   updateProblem();
   tickLater();
}

void Mirror::proceed() {
   if ( phase_ == Phase::scanning && queue_.size() < namesAtOnce ) {
      scan_.next();
   }
   if ( phase_ == Phase::scanning && scan_.done() && left_ == 0 ) {
      phase_ = Phase::verifying;
      for ( auto const & [ name, entity ] : entities_ ) {
         if ( !seen_.contains( name ) ) {
            enqueue( name, For::pass );
         }
      }
   }
   if ( phase_ == Phase::verifying && left_ == 0 ) {
      finished();
   }
}

void Mirror::finished() {
   phase_ = Phase::idle;
   seen_.clear();
   took_ = loop_.scheduler()->now() - began_;
   readingWhy_.clear();
   updateProblem();
   tickLater();
   if ( extent_ == Extent::values && !std::exchange( whole_, true ) ) {
      events_.complete();
   }
}

void Mirror::tickLater() {
   bool const follows = notices_.working() && readingWhy_.empty();
   tick_.start( follows ? std::max< Gantry::Time >( options_.compare, took_ * comparePart )
                        : std::max< Gantry::Time >( options_.poll, took_ * pollPart ) );
}

void Mirror::tick() {
   if ( phase_ == Phase::idle ) {
      begin( notices_.working() && whole_ ? Extent::names : Extent::values );
   }
}

// --- Values --------------------------------------------------------------------------------------

void Mirror::enqueue( std::string const & name, For purpose ) {
   if ( !reader_.up() ) {
      return; // everything is read when it is
   }
   auto const [ place, isNew ] = queued_.try_emplace( name, 0 );
   if ( isNew && queue_.size() > options_.entities ) {
      queued_.erase( place );
      whole_ = false; // the next pass reads it
      return;
   }
   if ( isNew ) {
      queue_.push_back( name );
   }
   if ( purpose == For::pass && std::exchange( place->second, pass_ ) != pass_ ) {
      ++left_;
   }
   if ( !std::exchange( pumping_, true ) ) {
      posted_.post( [ this ] {
         pumping_ = false;
         pump();
      } );
   }
}

void Mirror::pump() {
   while ( !queue_.empty() && reader_.canTake() ) {
      auto const name = std::move( queue_.front() );
      queue_.pop_front();
      ask( name );
   }
   proceed();
}

// A notice that comes from now on asks again: the answer may be older than it.
void Mirror::ask( std::string const & name ) {
   auto const pass = queued_.extract( name ).mapped();
   auto const key = withPrefix( options_.prefix, name );
   auto const entity = entities_.find( name );
   if ( entity == entities_.end() || !entity->second.tooLarge ) {
      return askValue( name, key, pass );
   }
   reader_.command( { "MEMORY", "USAGE", key, "SAMPLES", "0" }, [ this, name, key,
                                                                  pass ]( Reply const & reply ) {
      bool const small = reply.ok() && static_cast< U64 >( reply.number ) <= options_.entityBytes;
      return small ? askValue( name, key, pass ) : answered( pass, reply );
   } );
}

void Mirror::askValue( std::string const & name, std::string const & key, U64 pass ) {
   ++reads_;
   reader_.command( { "HGETALL", key }, [ this, name, pass ]( Reply const & reply ) {
      take( name, reply );
      answered( pass, reply );
   } );
}

void Mirror::answered( U64 pass, Reply const & reply ) {
   if ( pass == pass_ && phase_ != Phase::idle && !reply.lost() ) {
      --left_;
      proceed();
   }
}

void Mirror::take( std::string const & name, Reply const & reply ) {
   if ( reply.lost() ) {
      if ( !reply.text.empty() ) {
         unreadableIs( name, reply.text, Size::tooLarge );
      }
   } else if ( reply.failedWith( "WRONGTYPE" ) ) {
      unreadableIs( name, "expected a hash" );
   } else if ( reply.failed() ) {
      failed( "HGETALL " + withPrefix( options_.prefix, name ) + ": " + reply.text );
   } else if ( auto fields = fieldsOf( reply ); !fields ) {
      unreadableIs( name, "the server's reply is not a hash" );
   } else if ( fields->empty() ) {
      remove( name );
   } else {
      valueIs( name, std::move( *fields ) );
   }
}

void Mirror::valueIs( std::string const & name, Fields fields ) {
   if ( phase_ != Phase::idle ) {
      seen_.insert( name );
   }
   auto & entity = entities_[ name ];
   auto const before = entity.fields ? sizeOf( name, *entity.fields ) : 0;
   auto const after = sizeOf( name, fields );
   if ( bytes_ - before + after > options_.allBytes ) {
      return unreadableIs( name, "all entities together have more than " +
                                    std::to_string( options_.allBytes ) + " bytes" );
   }
   if ( entity.fields == fields && entity.unreadable.empty() ) {
      return;
   }
   bytes_ += after - before;
   entity.fields = std::move( fields );
   entity.unreadable.clear();
   entity.tooLarge = false;
   events_.entityIs( name, *entity.fields );
}

void Mirror::unreadableIs( std::string const & name, std::string const & why, Size size ) {
   if ( entities_.size() >= options_.entities && !entities_.contains( name ) ) {
      return;
   }
   auto & entity = entities_[ name ];
   entity.tooLarge = size == Size::tooLarge;
   if ( std::exchange( entity.unreadable, why ) != why ) {
      events_.unreadable( name, why );
   }
}

void Mirror::remove( std::string const & name ) {
   auto const entity = entities_.find( name );
   if ( entity == entities_.end() ) {
      return;
   }
   if ( entity->second.fields ) {
      bytes_ -= sizeOf( name, *entity->second.fields );
   }
   entities_.erase( entity );
   events_.entityGone( name );
}

} // namespace Database
