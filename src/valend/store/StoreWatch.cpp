#include "valend/store/StoreWatch.h"

namespace Valend {

// Notifies the watch of any change of one entity.
class StoreWatch::Follower final : public Quill::NotifieeOf< Quill::Entity const > {
 public:
   Follower( StoreWatch & watch, Quill::Ptr< Quill::Entity const > entity ) : watch_( watch ) {
      notifierIs( std::move( entity ) );
   }

   void onAttribute( Quill::AttrId /* attributeId */, void const * /* key */ ) override {
      watch_.changed();
   }
   bool wanted = true;

 private:
   StoreWatch & watch_;
};

StoreWatch::StoreWatch( Quill::Ptr< Gantry::TaskScheduler > scheduler, Gantry::WorkQueue & work,
                        Look look )
    : scheduler_( scheduler ), look_( std::move( look ) ), posted_( work, "storeWatch" ),
      timer_( std::move( scheduler ), "storeWatch", [ this ] { changed(); } ) {
   changed();
}

StoreWatch::~StoreWatch() = default;

void StoreWatch::changed() {
   if ( pending_ || over_ ) {
      return;
   }
   pending_ = true;
   posted_.post( [ this ] { look(); } );
}

void StoreWatch::look() {
   pending_ = false;
   auto const began = scheduler_->now();
   if ( began < restEnd_ ) {
      return timer_.start( restEnd_ - began );
   }
   timer_.stop();
   StoreVisits visits;
   auto const looked = look_( visits );
   over_ = looked.over;
   if ( over_ ) {
      return followers_.clear();
   }
   if ( !looked.skipped ) {
      follow( visits );
   }
   auto const ended = scheduler_->now();
   restEnd_ = ended + restFactor * ( ended - began );
   if ( looked.next ) {
      timer_.start( *looked.next );
   }
}

void StoreWatch::follow( StoreVisits const & visits ) {
   for ( auto const & [ entity, follower ] : followers_ ) {
      follower->wanted = false;
   }
   for ( auto const & entity : visits ) {
      auto & follower = followers_[ entity.get() ];
      if ( follower ) {
         follower->wanted = true;
      } else {
         follower = std::make_unique< Follower >( *this, entity );
      }
   }
   std::erase_if( followers_, []( auto const & entry ) { return !entry.second->wanted; } );
}

} // namespace Valend
