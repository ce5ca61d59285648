#include "settings/ProcessSettings.h"

#include "platform/quill/Exception.h"
#include "platform/trace/TraceLevels.h"

#include <charconv>
#include <cstdlib>
#include <filesystem>

namespace Settings {

namespace {

// `setting` is an element of processSettings.
std::size_t rowOf( ProcessSetting const & setting ) {
   return static_cast< std::size_t >( &setting - processSettings.data() );
}

std::string levelsProblem( std::string const & levels ) {
   try {
      Quill::TraceLevels const parsed( levels );
      return std::string();
   } catch ( Quill::RangeException const & e ) {
      return e.text();
   }
}

bool isMilliseconds( std::string const & text ) {
   unsigned value = 0;
   auto const end = text.data() + text.size();
   auto const [ stop, code ] = std::from_chars( text.data(), end, value );
   return code == std::errc() && stop == end && value <= maxMilliseconds;
}

} // namespace

std::string stateDirectoryOfSystem() {
   auto const * const given = std::getenv( "STATE_DIRECTORY" ); // a list, separated by ":"
   if ( given && *given ) {
      std::string const all( given );
      return all.substr( 0, all.find( ':' ) );
   }
   return std::filesystem::is_directory( defaultStateDirectory ) ? defaultStateDirectory : "";
}

std::string problemWith( ProcessSetting const & setting, std::string const & value ) {
   auto const name = std::string( setting.name );
   if ( setting.type == SettingType::traceLevels ) {
      return levelsProblem( value );
   }
   if ( setting.type == SettingType::databaseServer ||
        setting.type == SettingType::databasePrefix ) {
      auto const problem = setting.type == SettingType::databaseServer
                              ? problemWithDatabaseServer( value )
                              : problemWithDatabasePrefix( value );
      return problem.empty() ? problem : name + " " + problem;
   }
   if ( setting.type == SettingType::milliseconds ) {
      return isMilliseconds( value )
                ? std::string()
                : name + " is \"" + value + "\"; expected milliseconds from 0 to " +
                     std::to_string( maxMilliseconds );
   }
   if ( setting.type == SettingType::absolutePath && !value.starts_with( '/' ) ) {
      return name + " is \"" + value + "\"; expected an absolute path";
   }
   if ( value.empty() || value.size() > setting.maxBytes ) {
      return name + " has " + std::to_string( value.size() ) + " bytes; expected a " +
             ( setting.type == SettingType::group ? "group" : "path" ) + " of 1 to " +
             std::to_string( setting.maxBytes ) + " bytes";
   }
   return std::string();
}

std::string shown( ProcessSetting const & setting, std::string const & value ) {
   return setting.type == SettingType::databaseServer ? withoutPassword( value ) : value;
}

std::optional< std::string > const & ProcessConfig::given( ProcessSetting const & setting ) const {
   return given_[ rowOf( setting ) ];
}

std::string ProcessConfig::value( ProcessSetting const & setting ) const {
   if ( auto const & found = given( setting ) ) {
      return *found;
   }
   return setting.systemDefault ? setting.systemDefault() : std::string( setting.defaultValue );
}

void ProcessConfig::valueIs( ProcessSetting const & setting, std::string value ) {
   given_[ rowOf( setting ) ] = std::move( value );
}

ProcessConfig ProcessConfig::overriddenBy( ProcessConfig const & other ) const {
   auto result = *this;
   for ( auto const & setting : processSettings ) {
      if ( auto const & value = other.given( setting ) ) {
         result.valueIs( setting, *value );
      }
   }
   return result;
}

} // namespace Settings
