#include "settings/Changes.h"

#include "settings/Counted.h"

#include <set>

namespace Settings {

namespace {

using Lines = std::vector< std::string >;

// Calls `each` with every key of either map and its values in both; null where a map has none.
template < class Map, class Each >
void compare( Map const & before, Map const & next, Each const & each ) {
   std::set< typename Map::key_type > keys;
   for ( auto const * map : { &before, &next } ) {
      for ( auto const & entry : *map ) {
         keys.insert( entry.first );
      }
   }
   for ( auto const & key : keys ) {
      auto const old = before.find( key );
      auto const now = next.find( key );
      each( key, old == before.end() ? nullptr : &old->second,
            now == next.end() ? nullptr : &now->second );
   }
}

std::string changed( std::string const & what, std::string const & before,
                     std::string const & now ) {
   return what + " " + now + ", was " + before;
}

std::string delayText( std::optional< U16 > delay ) {
   return delay ? std::to_string( *delay ) + " ms" : "off";
}

std::string goodbyesText( std::optional< Goodbyes > const & goodbyes ) {
   return goodbyes ? goodbyes->text() : "not set";
}

void interfaceChanges( Lines & lines, std::string const & name, InterfaceConfig const * before,
                       InterfaceConfig const * now ) {
   auto const head = "interface " + name + ": ";
   if ( !before || !now ) {
      lines.push_back(
         head + ( before ? "removed" : "added, device " + now->device + ", VRF " + now->vrf ) );
      return;
   }
   if ( before->device != now->device ) {
      lines.push_back( changed( head + "device", before->device, now->device ) );
   }
   if ( before->vrf != now->vrf ) {
      lines.push_back( changed( head + "VRF", before->vrf, now->vrf ) );
   }
   if ( before->shutdownDelay != now->shutdownDelay ) {
      lines.push_back( head + "shutdown delay " +
                       ( now->shutdownDelay ? "supported" : "no longer supported" ) );
   }
   if ( before->goodbyes != now->goodbyes ) {
      lines.push_back( changed( head + "goodbyes", goodbyesText( before->goodbyes ),
                                goodbyesText( now->goodbyes ) ) );
   }
}

void messageChanges( Lines & lines, std::string const & agent, std::string const & interface,
                     Frames const * before, Frames const * now ) {
   auto const head = "interface " + interface + ": messages of " + agent;
   if ( !before ) {
      lines.push_back( head + " added, " + counted( now->size(), "frame" ) );
   } else if ( !now ) {
      lines.push_back( head + " removed" );
   } else if ( *before != *now ) {
      lines.push_back( head + " changed, " + counted( now->size(), "frame" ) );
   }
}

// The password of a database is not for the log.
std::string shownOrNone( ProcessSetting const & setting, ProcessConfig const & process ) {
   auto const value = process.value( setting );
   return value.empty() ? "none" : shown( setting, value );
}

void agentChanges( Lines & lines, Config const & before, Config const & next ) {
   static std::map< std::string, Frames > const none;
   compare( before.agents, next.agents,
            [ & ]( auto const & agent, auto const * old, auto const * now ) {
               compare( old ? *old : none, now ? *now : none,
                        [ & ]( auto const & interface, auto const * was, auto const * is ) {
                           messageChanges( lines, agent, interface, was, is );
                        } );
            } );
}

} // namespace

Lines changesBetween( Config const & before, Config const & next ) {
   Lines lines;
   if ( before.shutdownDelayMs != next.shutdownDelayMs ) {
      lines.push_back( changed( "shutdown delay", delayText( before.shutdownDelayMs ),
                                delayText( next.shutdownDelayMs ) ) );
   }
   if ( before.goodbyes != next.goodbyes ) {
      lines.push_back( changed( "goodbyes", before.goodbyes.text(), next.goodbyes.text() ) );
   }
   compare( before.vrfs, next.vrfs, [ & ]( auto const & vrf, auto const * old, auto const * now ) {
      auto const head = "VRF " + vrf + ": ";
      if ( !old || !now ) {
         lines.push_back( head + ( old ? "removed" : "added, namespace " + *now ) );
      } else if ( *old != *now ) {
         lines.push_back( changed( head + "namespace", *old, *now ) );
      }
   } );
   compare( before.interfaces, next.interfaces,
            [ & ]( auto const & name, auto const * old, auto const * now ) {
               interfaceChanges( lines, name, old, now );
            } );
   agentChanges( lines, before, next );
   return lines;
}

Lines processChanges( ProcessConfig const & before, ProcessConfig const & next,
                      TakesEffect takesEffect ) {
   Lines lines;
   for ( auto const & setting : processSettings ) {
      auto const name = std::string( setting.name );
      if ( setting.takesEffect != takesEffect ||
           before.given( setting ) == next.given( setting ) ) {
         continue;
      }
      if ( takesEffect == TakesEffect::onReload ) {
         if ( before.value( setting ) != next.value( setting ) ) {
            lines.push_back(
               changed( name, shownOrNone( setting, before ), shownOrNone( setting, next ) ) );
         }
      } else {
         auto const & value = next.given( setting );
         lines.push_back( name + ( value ? " " + *value : " back to its default" ) +
                          ": takes effect at the next start" );
      }
   }
   return lines;
}

} // namespace Settings
