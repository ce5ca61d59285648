#include "valend/speakers/Attaching.h"

#include "linux/DescriptorReserve.h"
#include "settings/Counted.h"

#include <cerrno>
#include <utility>

namespace Valend {

using Egress::Filters;
using Valen::Linux::Worker;

namespace {

constexpr std::chrono::milliseconds firstPause{ 1000 };
constexpr std::chrono::milliseconds longestPause{ 300'000 };
constexpr std::chrono::milliseconds endTimeout{ 500 };

constexpr int batchSize = 64;

constexpr char const * pending = "its filter is not attached yet";

} // namespace

// What the thread does at once, for one namespace, and what comes back.
struct Attaching::Batch {
   struct One {
      LinkPlace place;
      U32 ifIndex = 0;
      std::string why; // it is not attached
      bool isGone = false;
   };
   std::string netNs;
   U32 number = 0;
   bool wantsMaps = false;
   std::vector< One > devices;
   std::optional< Maps > maps;

   void run( Filters & filters, Valen::Linux::NetNsDirectories const & directories );
   void attachAll( Filters & filters, Valen::Linux::NetNsDirectories const & directories );
};

void Attaching::Batch::run( Filters & filters,
                            Valen::Linux::NetNsDirectories const & directories ) {
   Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
   try {
      attachAll( filters, directories );
   } catch ( Quill::ErrnoException const & e ) {
      for ( auto & device : devices ) {
         device.why = e.text();
      }
   }
}

void Attaching::Batch::attachAll( Filters & filters,
                                  Valen::Linux::NetNsDirectories const & directories ) {
   if ( wantsMaps ) {
      maps = Maps{ filters.mutes(), filters.copies() };
   }
   filters.load( number );
   auto const opened = directories.openNamed( netNs );
   auto & reserve = Valen::Linux::DescriptorReserve::ofProcess();
   for ( auto & device : devices ) {
      if ( !reserve.hasRoom() ) {
         device.why = "no file descriptor is left for its filter; raise the limit (LimitNOFILE= of "
                      "the service)";
         continue;
      }
      try {
         filters.attach( number, opened, device.ifIndex );
      } catch ( Quill::ErrnoException const & e ) {
         device.why = e.text();
         device.isGone = e.number() == ENODEV;
      }
   }
}

Attaching::Attaching( Valen::Linux::EventLoop & loop, Valen::Linux::NetNsDirectories directories,
                      IfIndexOf ifIndexOf, Conditions & conditions, Observer & observer )
    : directories_( std::move( directories ) ), ifIndexOf_( std::move( ifIndexOf ) ),
      observer_( observer ), condition_( conditions, "mute" ),
      filters_( std::make_shared< Filters >() ), posted_( loop.workQueue(), "filters" ),
      pause_( firstPause, longestPause ),
      again_( loop.scheduler(), "filters", [ this ] { attachAgain(); } ),
      worker_( loop, "valen-filters", endTimeout ) {}

// Filters of a clsact would stay, without a process that reads what they copy.
Attaching::~Attaching() {
   for ( auto const & [ place, device ] : devices_ ) {
      if ( device.state == State::filtered || device.state == State::asked ) {
         detach( place, device.ifIndex );
      }
   }
}

// --- Which devices -------------------------------------------------------------------------------

void Attaching::placeIs( LinkPlace const & place, U64 generation ) {
   auto const [ known, isNew ] = places_.insert_or_assign( place, generation );
   if ( isNew ) {
      seen_.insert( place );
      lookSoon();
   }
}

bool Attaching::dropOlder( U64 generation ) {
   auto place = places_.lower_bound( std::exchange( lookedFor_, {} ) );
   for ( int left = batchSize; left > 0 && place != places_.end(); --left ) {
      auto const looked = place++;
      if ( looked->second < generation ) {
         if ( auto const device = devices_.find( looked->first ); device != devices_.end() ) {
            drop( device );
         }
         places_.erase( looked );
      }
   }
   if ( place == places_.end() ) {
      return false;
   }
   lookedFor_ = place->first;
   return true;
}

void Attaching::deviceSeen( LinkPlace const & place, LinkSeen seen ) {
   if ( places_.contains( place ) ) {
      seen_.insert( place );
      if ( seen == LinkSeen::gone ) {
         gone_.insert( place );
      }
      lookSoon();
   }
}

void Attaching::namespaceChanged( std::string const & netNs ) {
   auto const number = numbers_.extract( netNs );
   if ( number.empty() ) {
      return;
   }
   worker_.run( [ filters = filters_, number = number.mapped() ]() -> Worker::Work {
      filters->forget( number );
      return {};
   } );
   auto const first = devices_.lower_bound( { netNs, "" } );
   for ( auto device = first; device != devices_.end() && device->first.netNs == netNs; ) {
      auto const gone = device++;
      seen_.insert( gone->first );
      forget( gone, number.mapped() );
   }
   lookSoon();
}

void Attaching::lookSoon() {
   if ( !std::exchange( lookPosted_, true ) ) {
      posted_.post( [ this ] { look(); } );
   }
}

void Attaching::look() {
   lookPosted_ = false;
   for ( int left = batchSize; left > 0 && !seen_.empty(); --left ) {
      lookAt( seen_.extract( seen_.begin() ).value() );
   }
   attachMissing();
   if ( !seen_.empty() || !missing_.empty() ) {
      lookSoon();
   }
}

void Attaching::lookAt( LinkPlace const & place ) {
   auto const known = devices_.find( place );
   U32 const ifIndex = places_.contains( place ) ? ifIndexOf_( place ) : 0;
   bool const wasGone = gone_.erase( place ) != 0;
   if ( known != devices_.end() && known->second.ifIndex == ifIndex && !wasGone ) {
      return;
   }
   if ( known != devices_.end() ) {
      drop( known );
   }
   if ( ifIndex ) {
      stateIs( devices_.emplace( place, Device{ ifIndex, State::failed, {} } ).first,
               State::missing );
   }
}

void Attaching::forget( Devices::iterator device, U32 number ) {
   bool const wasFiltered = device->second.state == State::filtered;
   auto const place = device->first;
   FilteredDevice const lost{ number, device->second.ifIndex };
   stateIs( device, State::filtered );
   devices_.erase( device );
   if ( wasFiltered ) {
      observer_.lost( place, lost );
   }
}

// Its filter is removed, wherever the device is now.
void Attaching::drop( Devices::iterator device ) {
   auto const place = device->first;
   auto const ifIndex = device->second.ifIndex;
   auto const state = device->second.state;
   bool const attached = state == State::filtered || state == State::asked;
   forget( device, numberOf( place.netNs ) );
   if ( attached ) {
      detach( place, ifIndex );
   }
}

void Attaching::detach( LinkPlace const & place, U32 ifIndex ) {
   worker_.run( [ filters = filters_, directories = directories_, netNs = place.netNs,
                  number = numberOf( place.netNs ), ifIndex ]() -> Worker::Work {
      Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
      try {
         filters->detach( number, directories.openNamed( netNs ), ifIndex );
      } catch ( Quill::ErrnoException const & ) {
         filters->forget( number, ifIndex );
      }
      return {};
   } );
}

// --- Attaching -----------------------------------------------------------------------------------

// A batch, of one namespace.
void Attaching::attachMissing() {
   if ( missing_.empty() ) {
      return tell();
   }
   auto const batch = std::make_shared< Batch >();
   batch->netNs = missing_.begin()->netNs;
   batch->number = numberOf( batch->netNs );
   batch->wantsMaps = !std::exchange( mapsAsked_, true );
   for ( int left = batchSize;
         left > 0 && !missing_.empty() && missing_.begin()->netNs == batch->netNs; --left ) {
      auto const device = devices_.find( *missing_.begin() );
      batch->devices.push_back( { device->first, device->second.ifIndex, {} } );
      stateIs( device, State::asked );
   }
   worker_.run( [ this, filters = filters_, directories = directories_, batch ]() -> Worker::Work {
      batch->run( *filters, directories );
      return [ this, batch ] { attached( *batch ); };
   } );
}

void Attaching::attached( Batch & batch ) {
   if ( batch.maps ) {
      observer_.loaded( std::move( *batch.maps ) );
      mapsLoaded_ = true;
   } else if ( batch.wantsMaps ) {
      mapsAsked_ = false;
   }
   auto const number = numbers_.find( batch.netNs );
   bool const replaced = number == numbers_.end() || number->second != batch.number;
   for ( auto const & one : batch.devices ) {
      auto const device = devices_.find( one.place );
      if ( replaced || device == devices_.end() || device->second.ifIndex != one.ifIndex ||
           device->second.state != State::asked ) {
         continue;
      }
      bool const done = one.why.empty() && mapsLoaded_;
      device->second.why = one.why;
      device->second.isGone = one.isGone;
      stateIs( device, done ? State::filtered : State::failed );
      if ( done ) {
         observer_.attached( one.place, { batch.number, one.ifIndex } );
      }
   }
   tell();
}

void Attaching::attachAgain() {
   while ( !failed_.empty() ) {
      stateIs( devices_.find( *failed_.begin() ), State::missing );
   }
   lookSoon();
}

void Attaching::stateIs( Devices::iterator device, State state ) {
   auto const & place = device->first;
   missing_.erase( place );
   failed_.erase( place );
   asked_ -= device->second.state == State::asked;
   device->second.state = state;
   if ( state == State::missing ) {
      missing_.insert( place );
   } else if ( state == State::failed ) {
      failed_.insert( place );
   }
   asked_ += state == State::asked;
}

// When nothing is under way.
void Attaching::tell() {
   if ( asked_ || !missing_.empty() || !seen_.empty() ) {
      return;
   }
   tellFailed();
   if ( failed_.empty() ) {
      pause_.reset();
   } else if ( !again_.running() ) {
      again_.start( pause_.take() );
   }
}

void Attaching::tellFailed() {
   std::size_t count = 0;
   std::string why;
   for ( auto const & place : failed_ ) {
      if ( !devices_.at( place ).isGone ) {
         ++count;
         why = whyNot( place );
      }
   }
   if ( count == 0 ) {
      condition_.clear();
   } else {
      condition_.raise( "the goodbyes of " + Settings::counted( count, "interface" ) +
                        " will not last: " + why );
   }
}

U32 Attaching::numberOf( std::string const & netNs ) {
   auto & number = numbers_[ netNs ];
   if ( !number ) {
      number = ++lastNumber_;
   }
   return number;
}

// --- What is attached ----------------------------------------------------------------------------

std::optional< FilteredDevice > Attaching::filtered( LinkPlace const & place ) const {
   auto const device = devices_.find( place );
   if ( device == devices_.end() || device->second.state != State::filtered ) {
      return std::nullopt;
   }
   return FilteredDevice{ numbers_.at( place.netNs ), device->second.ifIndex };
}

std::string Attaching::whyNot( LinkPlace const & place ) const {
   if ( filtered( place ) ) {
      return "";
   }
   auto const device = devices_.find( place );
   return device == devices_.end() || device->second.why.empty() ? pending : device->second.why;
}

} // namespace Valend
