// Puts the configuration in force, reads it again on request, and knows what is in force and which
// line of which file it came from.
#pragma once

#include "settings/Config.h"
#include "settings/ConfigReader.h"

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace Valend {

class Configurator {
 public:
   using Apply = std::function< void( Settings::Config const & ) >;

   // `file` is what is read; `commandLine` goes before what it says. `apply` puts a configuration
   // in force.
   Configurator( std::string file, Settings::ProcessConfig commandLine, Apply apply );

   // Puts what the process is started with in force. It has no errors.
   void start( Settings::ConfigResult read );

   // Reads the file and its drop-ins again and puts what differs in force. Returns a line for each
   // change. What is wrong, and what changed, is logged and told to the service manager. Throws
   // Refusal "ConfigRefused". Never called inside a notification.
   std::vector< std::string > reload();

   // What is in force, as the API's method Config answers it.
   nlohmann::json inForce() const;

 private:
   std::vector< std::string > put( Settings::ConfigResult read );
   std::vector< std::string > levelsChange( Settings::Config const & next ) const;
   nlohmann::json settings() const;
   nlohmann::json processSetting( char const * name, std::optional< std::string > const & value,
                                  bool onCommandLine ) const;

   std::string const file_;
   Settings::ProcessConfig const commandLine_;
   Apply const apply_;
   Settings::Config config_;         // in force
   Settings::ProcessConfig started_; // what holds until the next start
   Settings::Sources startSources_;
   Settings::Sources sources_;
};

} // namespace Valend
