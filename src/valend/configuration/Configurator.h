// Applies the configuration, reloads it on request, and knows which configuration is active.
#pragma once

#include "settings/ConfigFiles.h"
#include "valend/configuration/ActiveConfiguration.h"

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Valend {

// A configuration that was read has errors, and changed nothing.
class ConfigRefused : public std::runtime_error {
 public:
   // `errors`: all errors, one line each.
   explicit ConfigRefused( std::vector< std::string > errors )
       : runtime_error( "configuration rejected; keeping the previous one" ),
         errors_( std::move( errors ) ) {}

   std::vector< std::string > const & errors() const noexcept { return errors_; }

 private:
   std::vector< std::string > errors_;
};

class Configurator {
 public:
   using Apply = std::function< void( Settings::Config const & ) >;

   // `file` is read on reload; the settings of `commandLine` override those of the files. `apply`
   // applies a valid configuration.
   Configurator( std::string file, Settings::ProcessConfig commandLine, Apply apply );

   // Applies the configuration that valend starts with. Requires one without errors.
   void start( Settings::ConfigResult read );

   // Reads the file and its drop-ins again and applies what differs. Errors and changes are logged
   // and reported to the service manager. Returns a line for each change. Throws ConfigRefused when
   // the files have errors. Never called inside a notification.
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
