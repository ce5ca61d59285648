#include "platform/corvid/RawTxPam.h"

#include "platform/quill/Assert.h"

#include <utility>

namespace Corvid {

namespace {

RawTxPamProvider * theProvider = nullptr;

} // namespace

Quill::Ptr< RawTxPam > RawTxPam::rawTxPamFactory( Quill::String name ) {
   auto const * const rawTxPamProvider = theProvider;
   VALEN_ASSERT( nullptr != rawTxPamProvider );
   return theProvider->newRawTxPam( std::move( name ) );
}

RawTxPamProvider * rawTxPamProviderIs( RawTxPamProvider * provider ) noexcept {
   return std::exchange( theProvider, provider );
}

} // namespace Corvid
