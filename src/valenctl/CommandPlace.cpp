#include "valenctl/CommandPlace.h"

#include <CLI/CLI.hpp>

namespace Valenctl {

namespace {

// The options of one command, those in its option groups included.
std::vector< CLI::Option const * > optionsOf( CLI::App const & app ) {
   auto options = app.get_options();
   for ( auto const * group : app.get_subcommands( {} ) ) {
      if ( group->get_name().empty() ) {
         for ( auto const * option : group->get_options() ) {
            options.push_back( option );
         }
      }
   }
   return options;
}

} // namespace

void CommandPlace::pass( std::string const & word ) {
   if ( awaitsValue_ ) {
      awaitsValue_ = nullptr;
   } else if ( isOption( word ) ) {
      auto const * const option = optionCalled( word );
      bool const hasValue = word.find( '=' ) != std::string::npos;
      awaitsValue_ = option && !hasValue && option->get_items_expected_max() > 0 ? option : nullptr;
   } else if ( auto const * const command = commandCalled( word ) ) {
      app_ = command;
      arguments_ = 0;
   } else {
      ++arguments_;
   }
}

bool CommandPlace::isOption( std::string const & word ) const {
   return !awaitsValue_ && word.size() > 1 && word.front() == '-';
}

bool CommandPlace::expectsCommand() const {
   return !awaitsValue_ && !commands().empty() && !argument();
}

std::string CommandPlace::commandPath() const {
   std::string path;
   for ( auto const * app = app_; app; app = app->get_parent() ) {
      path.insert( 0, app->get_name() + ( path.empty() ? "" : " " ) );
   }
   return path;
}

std::vector< CLI::App const * > CommandPlace::commands() const {
   std::vector< CLI::App const * > commands;
   for ( auto const * command : app_->get_subcommands( {} ) ) {
      if ( !command->get_name().empty() && arguments_ == 0 ) {
         commands.push_back( command );
      }
   }
   return commands;
}

CLI::App const * CommandPlace::commandCalled( std::string const & word ) const {
   for ( auto const * command : commands() ) {
      if ( command->get_name() == word ) {
         return command;
      }
   }
   return nullptr;
}

std::vector< CLI::Option const * > CommandPlace::options() const {
   std::vector< CLI::Option const * > options;
   for ( auto const * app = app_; app; app = app->get_parent() ) {
      for ( auto const * option : optionsOf( *app ) ) {
         // Each command has a --help of its own, and only valenctl itself a --version.
         bool const ofOneLevel =
            option->check_name( "--help" ) || option->check_name( "--version" );
         if ( !option->get_positional() && ( app == app_ || !ofOneLevel ) ) {
            options.push_back( option );
         }
      }
   }
   return options;
}

CLI::Option const * CommandPlace::optionCalled( std::string const & word ) const {
   for ( auto const * option : options() ) {
      if ( option->check_name( word.substr( 0, word.find( '=' ) ) ) ) {
         return option;
      }
   }
   return nullptr;
}

CLI::Option const * CommandPlace::argument() const {
   std::size_t passed = 0;
   for ( auto const * option : optionsOf( *app_ ) ) {
      if ( option->get_positional() ) {
         passed += static_cast< std::size_t >( option->get_items_expected_max() );
         if ( arguments_ < passed ) {
            return option;
         }
      }
   }
   return nullptr;
}

} // namespace Valenctl
