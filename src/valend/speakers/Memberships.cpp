#include "valend/speakers/Memberships.h"

#include "linux/MulticastGroups.h"

#include <memory>
#include <set>
#include <string>
#include <utility>

namespace Valend {

using Derivation::Heard;
using Valen::Linux::Worker;

namespace {

// A change of one group comes in several reports.
constexpr std::chrono::milliseconds pause{ 200 };
constexpr std::chrono::milliseconds readTimeout{ 500 };
// The kernel lists the groups of all devices together, and the loop takes what was read in one go.
constexpr std::size_t atOnce = 100;

std::vector< Heard > saidOf( Valen::Linux::MulticastGroups const & found ) {
   if ( found.mac.empty() ) {
      return {};
   }
   Derivation::Member member;
   member.mac = found.mac;
   member.ipv4 = found.ipv4;
   member.linkLocal = found.linkLocal;
   member.mtu = found.mtu;
   member.igmpVersion = found.igmpVersion == 3 ? 3 : 2;
   return Derivation::membershipsOf( member, found.groups );
}

} // namespace

Memberships::Memberships( Valen::Linux::EventLoop & loop,
                          Valen::Linux::NetNsDirectories directories, Read read )
    : directories_( std::move( directories ) ), read_( std::move( read ) ),
      timer_( loop.scheduler(), "memberships", [ this ] { readAll(); } ),
      worker_( loop, "valen-groups", readTimeout ) {}

void Memberships::changed( LinkPlace const & place, U32 ifIndex ) {
   changed_[ place ] = ifIndex;
   if ( !timer_.running() ) {
      timer_.start( pause );
   }
}

// Some devices of a namespace in one go. What cannot be read is read at the next report.
void Memberships::readAll() {
   std::map< std::string, Places > changed; // by namespace
   for ( auto const & [ place, ifIndex ] : std::exchange( changed_, {} ) ) {
      auto & places = changed[ place.netNs ];
      places.emplace( ifIndex, place );
      if ( places.size() == atOnce ) {
         readSome( std::exchange( places, {} ) );
      }
   }
   for ( auto const & [ netNs, places ] : changed ) {
      if ( !places.empty() ) {
         readSome( places );
      }
   }
}

void Memberships::readSome( Places const & places ) {
   worker_.run( [ this, directories = directories_, places ]() -> Worker::Work {
      using Said = std::vector< std::pair< LinkPlace, std::vector< Heard > > >;
      auto const said = std::make_shared< Said >();
      std::set< U32 > devices;
      for ( auto const & [ ifIndex, place ] : places ) {
         devices.insert( ifIndex );
      }
      Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
      try {
         auto const netNs = directories.openNamed( places.begin()->second.netNs );
         for ( auto const & [ ifIndex, groups ] :
               Valen::Linux::multicastGroups( netNs, devices ) ) {
            said->emplace_back( places.at( ifIndex ), saidOf( groups ) );
         }
      } catch ( Quill::ErrnoException const & ) {
         return {};
      }
      return [ this, said ] {
         for ( auto const & [ place, heard ] : *said ) {
            read_( place, heard );
         }
      };
   } );
}

} // namespace Valend
