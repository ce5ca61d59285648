#include "settings/ProcessSettings.h"

#include <cstdlib>
#include <filesystem>

namespace Settings {

ProcessConfig merged( ProcessConfig const & file, ProcessConfig const & commandLine ) {
   auto const pick = []( auto const & first, auto const & second ) {
      return first ? first : second;
   };
   return { pick( commandLine.socket, file.socket ),
            pick( commandLine.netNsFolder, file.netNsFolder ),
            pick( commandLine.traceLevels, file.traceLevels ),
            pick( commandLine.traceFile, file.traceFile ),
            pick( commandLine.traceRing, file.traceRing ),
            pick( commandLine.stateDirectory, file.stateDirectory ),
            pick( commandLine.metricsFile, file.metricsFile ) };
}

std::string stateDirectoryOf( ProcessConfig const & process ) {
   if ( process.stateDirectory ) {
      return *process.stateDirectory;
   }
   auto const * const given = std::getenv( "STATE_DIRECTORY" ); // several are apart by ":"
   if ( given && *given ) {
      std::string const all( given );
      return all.substr( 0, all.find( ':' ) );
   }
   return std::filesystem::is_directory( defaultStateDirectory )
             ? defaultStateDirectory
             : "";
}

} // namespace Settings
