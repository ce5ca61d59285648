#include "valend/speakers/Memberships.h"

#include "linux/MulticastGroups.h"

#include <memory>
#include <utility>

namespace Valend {

using Derivation::Heard;
using Valen::Linux::Worker;

namespace {

// A change of one group comes in several reports.
constexpr std::chrono::milliseconds pause{ 200 };
constexpr std::chrono::milliseconds readTimeout{ 500 };

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

// What cannot be read is read at the next report.
void Memberships::readAll() {
   for ( auto const & [ place, ifIndex ] : std::exchange( changed_, {} ) ) {
      worker_.run( [ this, directories = directories_, place = place,
                     ifIndex = ifIndex ]() -> Worker::Work {
         Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
         try {
            auto const said = std::make_shared< std::vector< Heard > >( saidOf(
               Valen::Linux::multicastGroups( directories.openNamed( place.netNs ), ifIndex ) ) );
            return [ this, place, said ] { read_( place, *said ); };
         } catch ( Quill::ErrnoException const & ) {
            return {};
         }
      } );
   }
}

} // namespace Valend
