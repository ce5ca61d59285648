#include "valend/report/StatusModel.h"

#include <algorithm>

namespace Valend {

namespace {

// A sweep is spread over the period in so many parts at most, of so many interfaces at least.
constexpr std::size_t mostParts = 25;
constexpr std::size_t leastPart = 50;

std::size_t partsOf( std::size_t interfaces ) {
   return std::clamp< std::size_t >( interfaces / leastPart, 1, mostParts );
}

std::string dumped( Json const & json ) {
   return json.dump( -1, ' ', false, Json::error_handler_t::replace );
}

} // namespace

StatusModel::StatusModel( Store const & store, Feeder const & feeder, StatusReport const & report,
                          Quill::Ptr< Gantry::TaskScheduler > scheduler, Gantry::WorkQueue & work,
                          std::function< void() > news )
    : store_( store ), feeder_( feeder ), report_( report ), news_( std::move( news ) ),
      slices_( work, scheduler, "status" ),
      sweeps_( std::move( scheduler ), "status", [ this ] { sweep(); } ) {}

StatusModel::~StatusModel() = default;

void StatusModel::neededIs( bool needed ) {
   if ( needed == ( changes_ != nullptr ) ) {
      return;
   }
   if ( needed ) {
      changes_ = std::make_unique< StatusChanges >(
         store_, feeder_,
         StatusChanges::Changed{ [ this ]( auto const & interface ) { changed( interface ); },
                                 [ this ]( auto const & place ) { deviceChanged( place ); } } );
      return workLater();
   }
   changes_ = nullptr;
   sweeps_.stop();
   entries_.clear();
   newest_.clear();
   gone_.clear();
   places_.clear();
   stale_.clear();
   isStale_.clear();
   sweptTo_.clear();
   complete_ = false;
}

// --- Looking -------------------------------------------------------------------------------------

void StatusModel::changed( std::string const & interface ) {
   if ( changes_ && isStale_.insert( interface ).second ) {
      stale_.push_back( interface );
      workLater();
   }
}

void StatusModel::deviceChanged( LinkPlace const & place ) {
   auto const [ begin, end ] = places_.equal_range( place );
   std::for_each( begin, end, [ this ]( auto const & entry ) { changed( entry.second ); } );
}

void StatusModel::workLater() {
   if ( !std::exchange( pending_, true ) ) {
      slices_.post( [ this ] { work(); } );
   }
}

// Looks at what has changed; the first time at all interfaces.
void StatusModel::work() {
   pending_ = false;
   if ( !changes_ ) {
      return;
   }
   slices_.begin();
   while ( !stale_.empty() && slices_.goesOn() ) {
      auto const interface = stale_.front();
      stale_.pop_front();
      isStale_.erase( interface );
      update( interface );
   }
   while ( !complete_ && slices_.goesOn() ) {
      if ( !sweepOne() ) {
         complete_ = true;
         told_ = ~last_; // even if there is no interface
         sweeps_.start( period );
      }
   }
   if ( !stale_.empty() || !complete_ ) {
      return workLater();
   }
   tell();
}

// Looks at the next part of all interfaces.
void StatusModel::sweep() {
   auto const count = feeder_.config().interfaces.size();
   auto const parts = partsOf( count );
   sweeps_.start( std::chrono::nanoseconds( period ) / static_cast< S64 >( parts ) );
   slices_.begin();
   for ( auto left = count / parts + 1; left > 0 && slices_.goesOn() && sweepOne(); --left ) {
   }
   if ( stale_.empty() ) {
      tell();
   }
}

// Returns false at the end, and begins again.
bool StatusModel::sweepOne() {
   auto const & interfaces = feeder_.config().interfaces;
   auto const next = sweptTo_.empty() ? interfaces.begin() : interfaces.upper_bound( sweptTo_ );
   if ( next != interfaces.end() ) {
      sweptTo_ = next->first;
      update( sweptTo_ );
      return true;
   }
   sweptTo_.clear();
   if ( entries_.size() != interfaces.size() ) {
      std::vector< std::string > gone;
      for ( auto const & [ name, entry ] : entries_ ) {
         if ( !interfaces.contains( name ) ) {
            gone.push_back( name );
         }
      }
      std::for_each( gone.begin(), gone.end(), [ this ]( auto const & name ) { remove( name ); } );
   }
   changes_->followNamespaces();
   return false;
}

void StatusModel::update( std::string const & interface ) {
   auto const & interfaces = feeder_.config().interfaces;
   auto const config = interfaces.find( interface );
   if ( config == interfaces.end() ) {
      return remove( interface );
   }
   auto & entry = entries_[ interface ];
   auto json = report_.interface( config->second );
   if ( entry.json == json ) {
      return;
   }
   entry.json = std::move( json );
   entry.text = dumped( entry.json );
   newest_.erase( entry.change );
   entry.change = ++last_;
   newest_[ entry.change ] = interface;
   gone_.erase( interface );
   LinkPlace place{ feeder_.config().netNsOf( config->second.vrf ), config->second.device };
   if ( entry.place != place ) {
      placeDel( entry.place, interface );
      places_.emplace( place, interface );
      entry.place = std::move( place );
   }
}

void StatusModel::placeDel( LinkPlace const & place, std::string const & interface ) {
   auto const [ begin, end ] = places_.equal_range( place );
   auto const found =
      std::find_if( begin, end, [ & ]( auto const & entry ) { return entry.second == interface; } );
   if ( found != end ) {
      places_.erase( found );
   }
}

void StatusModel::remove( std::string const & interface ) {
   auto const found = entries_.find( interface );
   if ( found == entries_.end() ) {
      return;
   }
   placeDel( found->second.place, interface );
   newest_.erase( found->second.change );
   entries_.erase( found );
   gone_[ interface ] = ++last_;
}

void StatusModel::tell() {
   if ( std::exchange( told_, last_ ) != last_ ) {
      news_();
   }
}

// --- What is known -------------------------------------------------------------------------------

U64 StatusModel::last( std::string const & interface ) const {
   auto const gone = gone_.find( interface );
   if ( gone != gone_.end() ) {
      return gone->second;
   }
   auto const found = entries_.find( interface );
   return found == entries_.end() ? 0 : found->second.change;
}

Json const * StatusModel::find( std::string const & interface ) const {
   auto const found = entries_.find( interface );
   return found == entries_.end() ? nullptr : &found->second.json;
}

StatusModel::Changes StatusModel::changes( U64 since ) const {
   Changes changes;
   for ( auto next = newest_.upper_bound( since ); next != newest_.end(); ++next ) {
      changes.changed.push_back( next->second );
   }
   for ( auto const & [ name, change ] : gone_ ) {
      if ( change > since ) {
         changes.gone.push_back( name );
      }
   }
   return changes;
}

std::string StatusModel::difference( U64 since,
                                     std::optional< std::string > const & interface ) const {
   std::vector< std::string > changed;
   for ( auto next = newest_.upper_bound( since ); next != newest_.end() && !interface; ++next ) {
      changed.push_back( next->second );
   }
   std::string gone;
   for ( auto const & [ name, change ] : gone_ ) {
      bool const isMeant = !interface || name == *interface;
      if ( isMeant && change > since && since > 0 ) { // not for who knows nothing yet
         gone += ( gone.empty() ? "" : "," ) + dumped( name );
      }
   }
   if ( interface && find( *interface ) ) {
      changed.push_back( *interface );
   }
   std::sort( changed.begin(), changed.end() );
   std::string text = "{\"gone\":[" + gone + "],\"interfaces\":[";
   for ( auto const & name : changed ) {
      text += entries_.at( name ).text;
      text += ',';
   }
   if ( !changed.empty() ) {
      text.pop_back();
   }
   return text + "]}";
}

void StatusModel::forget( U64 since ) {
   std::erase_if( gone_, [ & ]( auto const & entry ) { return entry.second <= since; } );
}

} // namespace Valend
