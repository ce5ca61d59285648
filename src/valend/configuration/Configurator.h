// Applies the configuration, reloads it on request, and knows which configuration is active.
#pragma once

#include "settings/ConfigFiles.h"
#include "valend/configuration/ActiveConfiguration.h"

#include <functional>
#include <string>
#include <vector>

namespace Valend {

class Configurator {
 public:
   using Apply = std::function< void( Settings::Config const & ) >;

   // `file` is read on reload; the settings of `commandLine` override those of the files. `apply`
   // applies a valid configuration.
   Configurator( std::string file, Settings::ProcessConfig commandLine, Apply apply );

   // Applies the configuration that valend starts with. Requires one without errors.
   void start( Settings::ConfigResult read );

   // Reads the file and its drop-ins again and applies what differs. Errors and changes are logged
   // and reported to the service manager. Returns a line for each change. Throws the
   // Refusal Errors::configRejected() when the files have errors. Never called inside a notification.
   std::vector< std::string > reload();

   ActiveConfiguration const & active() const noexcept { return active_; }

 private:
   [[noreturn]] void reject( std::vector< Settings::ConfigError > const & errors );
   std::vector< std::string > applyChanges( Settings::ConfigResult read );

   std::string const file_;
   Apply const apply_;
   ActiveConfiguration active_;
};

} // namespace Valend
