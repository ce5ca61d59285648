#include "linux/LinkControl.h"

#include "linux/LinkSocket.h"

namespace Valen::Linux {

namespace {

LinkId idOf( Corvid::NamespaceName const & netNs, U32 ifIndex, Quill::Name const & deviceName ) {
   return { netNs.stdString(), deviceName.stdString(), ifIndex };
}

} // namespace

LinkControl::LinkControl( NetNsDirectories directories, std::chrono::milliseconds timeout )
    : directories_( std::move( directories ) ), timeout_( timeout ) {}

void LinkControl::stateIs( Corvid::NamespaceName const & netNs, U32 ifIndex,
                           Quill::Name const & deviceName, LinkState state ) {
   LinkSocket( directories_.open( netNs ), timeout_ )
      .stateIs( idOf( netNs, ifIndex, deviceName ), state );
}

LinkState LinkControl::state( Corvid::NamespaceName const & netNs, U32 ifIndex,
                              Quill::Name const & deviceName ) {
   return LinkSocket( directories_.open( netNs ), timeout_ )
      .state( idOf( netNs, ifIndex, deviceName ) );
}

} // namespace Valen::Linux
