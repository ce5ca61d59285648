#include "valend/shutdown/DelayWatch.h"

namespace Valend {

DelayWatch::DelayWatch( Quill::Ptr< Valen::Status::StatusDir const > dir, Changed changed )
    : changed_( std::move( changed ) ), dir_( *this, std::move( dir ) ) {}

void DelayWatch::follow( Corvid::IntfId const & intfId,
                         Quill::Ptr< Valen::Status::IntfStatus const > entry ) {
   entries_.retire( intfId );
   entries_.findOrMake( intfId, *this, intfId, std::move( entry ) );
}

void DelayWatch::unfollow( Corvid::IntfId const & intfId ) {
   entries_.retire( intfId );
}

void DelayWatch::handleIntfStatus( Corvid::IntfId intfId ) {
   if ( entries_.has( intfId ) ) {
      changed_( intfId.stdString() );
   }
}

DelayWatch::EntrySm::EntrySm( DelayWatch const & watch, Corvid::IntfId intfId,
                              Quill::Ptr< Valen::Status::IntfStatus const > entry )
    : watch_( watch ), intfId_( std::move( intfId ) ), entry_( *this, std::move( entry ) ) {}

void DelayWatch::EntrySm::handleDelayed() {
   watch_.changed_( intfId_.stdString() );
}

} // namespace Valend
