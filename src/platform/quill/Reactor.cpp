#include "platform/quill/Reactor.h"

namespace Quill {

void Reactor::retire( Ptr< Reactor > reactor ) noexcept {
   if ( reactor && reactor->handlerDepth_ > 0 ) {
      reactor->quillDoZombieReactors( true );
   }
}

} // namespace Quill
