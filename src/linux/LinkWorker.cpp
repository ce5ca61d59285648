#include "linux/LinkWorker.h"

#include "linux/Thread.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <iterator>
#include <system_error>

namespace Valen::Linux {

namespace {

constexpr char const * name = "valen-links";
constexpr std::chrono::seconds timeout{
   1 }; // of the kernel's answer, which is there when it has done it

} // namespace

LinkWorker::LinkWorker( EventLoop & loop, NetNsDirectories directories,
                        std::chrono::nanoseconds longAfter )
    : directories_( std::move( directories ) ), longAfter_( longAfter ), inbox_( loop, name ) {}

LinkWorker::~LinkWorker() {
   stop();
   {
      std::lock_guard const lock( mutex_ );
      ending_ = true;
   }
   changed_.notify_one();
   if ( thread_ ) {
      thread_->join();
   }
}

// --- The loop's side -----------------------------------------------------------------------------

bool LinkWorker::startThreadOnce() {
   try {
      if ( !thread_ ) {
         thread_ = startThread( name, [ this ] { work(); } );
      }
      return true;
   } catch ( std::system_error const & ) {
      return false;
   }
}

void LinkWorker::netNssAre( std::set< std::string > const & netNss ) {
   {
      std::lock_guard const lock( mutex_ );
      std::set_symmetric_difference( netNss.begin(), netNss.end(), netNss_.begin(), netNss_.end(),
                                     std::inserter( unchecked_, unchecked_.end() ) );
      netNss_ = netNss;
   }
   wake();
}

void LinkWorker::refresh( std::string const & netNs ) {
   {
      std::lock_guard const lock( mutex_ );
      unchecked_.insert( netNs );
   }
   wake();
}

// Without a thread, the sockets are opened when they are needed.
void LinkWorker::wake() {
   if ( startThreadOnce() ) {
      changed_.notify_one();
   }
}

LinkWorker::Id LinkWorker::request( LinkId link, LinkState state, Gantry::Time deadline,
                                    Done done ) {
   auto const id = ++lastId_;
   if ( stopped_ ) {
      return id;
   }
   Place const place( deadline, id );
   waiting_[ id ] = { place, std::move( done ) };
   LinkSetting setting{ std::move( link ), state };
   if ( !startThreadOnce() ) { // better late than never
      inbox_.put(
         [ this, id, answers = execute( { setting } ) ] { answered( id, answers.front() ); } );
      return id;
   }
   {
      std::lock_guard const lock( mutex_ );
      queue_[ place ] = std::move( setting );
   }
   changed_.notify_one();
   return id;
}

bool LinkWorker::queued( Place const & place ) const {
   std::lock_guard const lock( mutex_ );
   return queue_.contains( place );
}

bool LinkWorker::begun( Id id ) const {
   auto const found = waiting_.find( id );
   return found != waiting_.end() && !queued( found->second.place );
}

bool LinkWorker::withdraw( Id id ) {
   auto const found = waiting_.find( id );
   if ( found == waiting_.end() ) {
      return true;
   }
   {
      std::lock_guard const lock( mutex_ );
      if ( queue_.erase( found->second.place ) == 0 ) {
         return false;
      }
   }
   waiting_.erase( found );
   return true;
}

void LinkWorker::forget( Id id ) {
   withdraw( id );
   waiting_.erase( id );
}

void LinkWorker::stop() {
   stopped_ = true;
   std::lock_guard const lock( mutex_ );
   for ( auto const & [ place, setting ] : queue_ ) {
      waiting_.erase( place.second );
   }
   queue_.clear();
}

void LinkWorker::answered( Id id, Answer const & answer ) {
   if ( auto const node = waiting_.extract( id ) ) { // else it was forgotten
      node.mapped().done( answer );
   }
}

// --- The thread's side ---------------------------------------------------------------------------

void LinkWorker::work() noexcept {
   std::unique_lock lock( mutex_ );
   for ( ;; ) {
      changed_.wait( lock, [ & ] { return ending_ || !unchecked_.empty() || !queue_.empty(); } );
      if ( ending_ ) {
         return;
      }
      if ( !unchecked_.empty() ) {
         auto const netNs = unchecked_.extract( unchecked_.begin() ).value();
         bool const wanted = netNss_.contains( netNs );
         lock.unlock();
         check( netNs, wanted );
         lock.lock();
         continue;
      }
      auto const batch = takeNext();
      lock.unlock();
      auto const begin = std::chrono::steady_clock::now();
      auto answers = execute( batch.settings );
      took( answers.size(), std::chrono::steady_clock::now() - begin );
      inbox_.put( [ this, ids = batch.ids, answers = std::move( answers ) ] {
         for ( std::size_t i = 0; i < ids.size(); ++i ) {
            answered( ids[ i ], answers[ i ] );
         }
      } );
      lock.lock();
      if ( auto const & netNs = batch.settings.front().link.netNs; !netNss_.contains( netNs ) ) {
         unchecked_.insert( netNs );
      }
   }
}

LinkWorker::Batch LinkWorker::takeNext() {
   bool const latest = longInARow_ > 0 && longInARow_ % 2 == 0;
   auto next = latest ? std::prev( queue_.end() ) : queue_.begin();
   auto const netNs = next->second.link.netNs;
   std::set< U32 > links;
   Batch batch;
   while ( next != queue_.end() && batch.ids.size() < atOnce_ && next->second.link.netNs == netNs &&
           links.insert( next->second.link.ifIndex ).second ) {
      batch.ids.push_back( next->first.second );
      batch.settings.push_back( std::move( next->second ) );
      next = queue_.erase( next );
   }
   return batch;
}

void LinkWorker::took( std::size_t changes, std::chrono::nanoseconds time ) {
   if ( time > longAfter_ ) {
      longInARow_ = changes == 1 ? longInARow_ + 1 : 0;
      atOnce_ = 1;
   } else {
      longInARow_ = 0;
      atOnce_ = time > longAfter_ / 2 ? atOnce_ : std::min( 2 * atOnce_, mostAtOnce );
   }
}

// A socket that is open keeps a deleted namespace alive.
void LinkWorker::check( std::string const & netNs, bool wanted ) {
   Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
   try {
      if ( wanted ) {
         socketIn( netNs );
      } else {
         sockets_.erase( netNs );
      }
   } catch ( std::exception const & ) { // tried again when it is needed
   }
}

LinkSocket & LinkWorker::socketIn( std::string const & netNs ) {
   auto const found = sockets_.find( netNs );
   if ( found != sockets_.end() ) {
      if ( !found->second.broken() &&
           directories_.isStill( netNs, found->second.netNsIdentity() ) ) {
         return found->second;
      }
      sockets_.erase( found );
   }
   return sockets_.try_emplace( netNs, directories_.openNamed( netNs ), timeout ).first->second;
}

std::vector< LinkWorker::Answer >
LinkWorker::execute( std::vector< LinkSetting > const & settings ) {
   auto const all = [ & ]( Answer const & answer ) {
      return std::vector< Answer >( settings.size(), answer );
   };
   Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
   try {
      return socketIn( settings.front().link.netNs ).statesAre( settings );
   } catch ( Quill::ErrnoException const & e ) {
      return all( { e.number(), e.text(), false } );
   } catch ( std::exception const & e ) {
      return all( { EIO, e.what(), false } );
   }
}

} // namespace Valen::Linux
