// Applies the configuration, reloads it on request, and knows which configuration is active.
#pragma once

#include "settings/ConfigFiles.h"
#include "valend/base/Conditions.h"
#include "valend/configuration/ActiveConfiguration.h"

#include <functional>
#include <string>
#include <vector>

namespace Valend {

class Configurator {
 public:
   using Apply = std::function< void( Settings::Config const & ) >;

   // `file` is read on reload; the settings of `commandLine` override those of the files. `apply`
   // applies a valid configuration. The condition "configuration" is raised while the active configuration
   // is not that of the files, because they have errors. `conditions` must outlive this.
   Configurator( std::string file, Settings::ProcessConfig commandLine, Conditions & conditions,
                 Apply apply );

   // Applies the configuration that valend starts with. Requires one without errors.
   //   rejected   the errors of the files, if it is not theirs but the last valid one
   void start( Settings::ConfigResult read,
               std::vector< Settings::ConfigError > const & rejected = {} );

   // Reads the file and its drop-ins again and applies what differs. Errors and changes are logged
   // and reported to the service manager. Returns a line for each change. Throws the
   // Refusal Errors::configRejected() when the files have errors. Never called inside a notification.
   std::vector< std::string > reload();

   ActiveConfiguration const & active() const noexcept { return active_; }

 private:
   [[noreturn]] void reject( std::vector< Settings::ConfigError > const & errors );
   std::vector< std::string > applyChanges( Settings::ConfigResult read );
   void sourcesAre( Settings::ConfigResult & read );

   std::string const file_;
   Condition condition_;
   Apply const apply_;
   ActiveConfiguration active_;
};

} // namespace Valend
