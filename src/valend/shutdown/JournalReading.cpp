#include "valend/shutdown/JournalReading.h"

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

namespace Valend {

std::size_t JournalReading::addLines( std::string_view lines ) {
   std::size_t damagedLines = 0;
   while ( !lines.empty() ) {
      auto const end = lines.find( '\n' );
      auto entry = end == lines.npos ? std::nullopt : entryIn( lines.substr( 0, end ) );
      if ( entry ) {
         add( std::move( *entry ) );
      } else {
         ++damagedLines;
      }
      lines.remove_prefix( end == lines.npos ? lines.size() : end + 1 );
   }
   return damagedLines;
}

void JournalReading::add( JournalEntry entry ) {
   bool const end = entry.phase == Phase::ended;
   auto const [ place, added ] = entries_.try_emplace( entry.id );
   if ( !added && place->second.phase == Phase::ended && !end ) {
      return; // it was copied into the next file
   }
   if ( end ) {
      ends_.push_back( entry.id );
   }
   if ( entry.record.ending != ShutdownRecord::Ending::goodbye ) { // that changes no link
      auto & newest = newest_[ entry.record.interface ];
      newest = std::max( newest, entry.id );
   }
   place->second = std::move( entry );
}

std::vector< U64 > JournalReading::ended() const {
   std::vector< U64 > ids;
   std::set< U64 > seen;
   for ( auto id = ends_.rbegin(); id != ends_.rend(); ++id ) {
      if ( seen.insert( *id ).second ) {
         ids.push_back( *id );
      }
   }
   std::reverse( ids.begin(), ids.end() );
   return ids;
}

History JournalReading::history() const {
   History history;
   for ( auto const id : ended() ) {
      auto const & record = entries_.at( id ).record;
      if ( !history.repeat( record ) ) { // of a version that wrote each
         history.add( id, record );
      }
   }
   return history;
}

bool JournalReading::newest( JournalEntry const & entry ) const {
   auto const found = newest_.find( entry.record.interface );
   return found != newest_.end() && found->second == entry.id;
}

} // namespace Valend
