#include "valend/Options.h"

#include "settings/Version.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>

namespace Valend {

namespace {

using Settings::ProcessSetting;
using Settings::SettingType;

constexpr char const * footer = R"(
valend holds the administrative shutdown of a network interface until the
goodbye frames that are queued for it have been sent. The configuration is
described in valen.yaml(5); operators use valenctl(1).

On SIGTERM and SIGINT, valend exits. It sends no frames then and leaves all
links unchanged. On SIGHUP, it reloads the configuration and applies what has
changed; a configuration with errors changes nothing. If the configuration has
errors at the start, valend starts with the last valid one.

See valend(8) for exit statuses.)";

std::string helpOf( ProcessSetting const & setting ) {
   auto const shown = setting.shownDefault();
   return std::string( setting.help ) + ( shown.empty() ? "" : " [" + std::string( shown ) + "]" );
}

// The value as the configuration files would have it.
std::string fileValue( ProcessSetting const & setting, std::string const & value ) {
   bool const isPath = setting.type == SettingType::absolutePath && !value.empty();
   return isPath ? std::filesystem::absolute( value ).string() : value;
}

void addOption( CLI::App & app, ProcessSetting const & setting,
                Settings::ProcessConfig & process ) {
   app.add_option_function< std::string >(
         "--" + std::string( setting.option ),
         [ &setting, &process ]( std::string const & value ) {
            process.valueIs( setting, fileValue( setting, value ) );
         },
         helpOf( setting ) )
      ->check( [ &setting ]( std::string const & value ) {
         return problemWith( setting, fileValue( setting, value ) );
      } );
}

} // namespace

std::optional< Options > parseOptions( int argc, char const * const * argv, Exit & exit ) {
   Options options;
   CLI::App app( "valend: graceful interface shutdown daemon", "valend" );
   app.footer( footer );
   app.set_version_flag( "--version", std::string( "valend " ) + Settings::version );
   app.add_option( "--config", options.config, "Configuration file; - is standard input" )
      ->capture_default_str();
   app.add_flag( "--check", options.check, "Check the configuration and exit" );
   for ( auto const & setting : Settings::processSettings ) {
      if ( setting.onCommandLine() ) {
         addOption( app, setting, options.process );
      }
   }
   try {
      app.parse( argc, argv );
   } catch ( CLI::ParseError const & e ) {
      exit = app.exit( e, std::cout, std::cerr ) == 0 ? Exit::done : Exit::usage;
      return std::nullopt;
   }
   return options;
}

} // namespace Valend
