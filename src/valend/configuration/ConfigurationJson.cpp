#include "valend/configuration/ConfigurationJson.h"

#include "platform/trace/Trace.h"
#include "settings/Hex.h"

namespace Valend {

namespace {

using Json = nlohmann::json;
using Settings::Place;
using Settings::ProcessSetting;

Json placeJson( Place const * place ) {
   return place ? Json{ { "file", place->file },
                        { "line", place->line },
                        { "column", place->column },
                        { "database", place->inDatabase } }
                : Json();
}

Place const * find( Settings::Sources::Places const & places, std::string const & name ) {
   auto const found = places.find( name );
   return found == places.end() ? nullptr : &found->second;
}

char const * originOf( Place const * place ) {
   return !place ? "default" : place->inDatabase ? "database" : "file";
}

Json textOrNull( std::string const & text ) {
   return text.empty() ? Json() : Json( text );
}

Json delayJson( ActiveConfiguration const & active ) {
   auto const & delay = active.config().shutdownDelayMs;
   auto const * const place = find( active.sources->settings, "shutdown-delay-ms" );
   return { { "name", "shutdown-delay-ms" },
            { "value", delay ? Json( std::to_string( *delay ) ) : Json() },
            { "origin", originOf( place ) },
            { "place", placeJson( place ) } };
}

Json goodbyesJson( ActiveConfiguration const & active ) {
   auto const * const place = find( active.sources->settings, "goodbyes" );
   return { { "name", "goodbyes" },
            { "value", active.config().goodbyes.text() },
            { "origin", originOf( place ) },
            { "place", placeJson( place ) } };
}

// The value that is used now. Trace levels can also be set over the API.
std::string currentValue( ActiveConfiguration const & active, ProcessSetting const & setting ) {
   if ( setting.type == Settings::SettingType::traceLevels ) {
      return Quill::traceLevels();
   }
   bool const onReload = setting.takesEffect == Settings::TakesEffect::onReload;
   return shown( setting, ( onReload ? active.wanted() : active.process ).value( setting ) );
}

Json processSettingJson( ActiveConfiguration const & active, ProcessSetting const & setting ) {
   bool const onCommandLine = active.commandLine.given( setting ).has_value();
   auto const & sources = setting.takesEffect == Settings::TakesEffect::onReload
                             ? *active.sources
                             : *active.processSources;
   auto const name = std::string( setting.name );
   auto const * const place = onCommandLine ? nullptr : find( sources.settings, name );
   return { { "name", name },
            { "value", textOrNull( currentValue( active, setting ) ) },
            { "origin", onCommandLine ? "command-line" : originOf( place ) },
            { "place", placeJson( place ) } };
}

Json settingsList( ActiveConfiguration const & active ) {
   auto list = Json::array( { delayJson( active ), goodbyesJson( active ) } );
   for ( auto const & setting : Settings::processSettings ) {
      list.push_back( processSettingJson( active, setting ) );
   }
   return list;
}

Json vrfsJson( ActiveConfiguration const & active ) {
   auto list = Json::array();
   for ( auto const & [ name, netNs ] : active.config().vrfs ) {
      list.push_back( { { "name", name },
                        { "namespace", netNs },
                        { "place", placeJson( find( active.sources->vrfs, name ) ) } } );
   }
   return list;
}

Json framesJson( Settings::Frames const & frames ) {
   auto list = Json::array();
   for ( auto const & frame : frames ) {
      list.push_back( Settings::toHex( frame ) );
   }
   return list;
}

} // namespace

Json settingsJson( ActiveConfiguration const & active ) {
   return { { "files", active.sources->files },
            { "settings", settingsList( active ) },
            { "vrfs", vrfsJson( active ) } };
}

JsonList configuredInterfaces( ActiveConfiguration const & active ) {
   return [ plan = active.plan, sources = active.sources,
            next = active.config().interfaces.begin() ]() mutable -> std::optional< Json > {
      if ( next == plan->config().interfaces.end() ) {
         return std::nullopt;
      }
      auto const & [ name, interface ] = *next++;
      auto const & goodbyes = interface.goodbyes;
      return Json{ { "name", name },
                   { "device", interface.device },
                   { "vrf", interface.vrf },
                   { "shutdownDelay", interface.shutdownDelay },
                   { "goodbyes", goodbyes ? Json( goodbyes->text() ) : Json() },
                   { "place", placeJson( find( sources->interfaces, name ) ) } };
   };
}

JsonList configuredMessages( ActiveConfiguration const & active ) {
   return [ plan = active.plan, sources = active.sources, agent = active.config().agents.begin(),
            last = std::string() ]() mutable -> std::optional< Json > {
      for ( ; agent != plan->config().agents.end(); ++agent, last.clear() ) {
         auto const & [ name, messages ] = *agent;
         auto const next = messages.upper_bound( last ); // no name is empty
         if ( next == messages.end() ) {
            continue;
         }
         last = next->first;
         return Json{ { "agent", name },
                      { "interface", last },
                      { "frames", framesJson( next->second ) },
                      { "place", placeJson( find( sources->messages.at( name ), last ) ) } };
      }
      return std::nullopt;
   };
}

} // namespace Valend
