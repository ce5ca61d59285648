#include "valenctl/Completion.h"

#include <CLI/CLI.hpp>
#include <algorithm>

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

std::vector< std::string > split( std::string const & text, char separator ) {
   std::vector< std::string > parts;
   std::istringstream stream( text );
   for ( std::string part; std::getline( stream, part, separator ); ) {
      parts.push_back( part );
   }
   return parts;
}

// Follows the words of a command line to the place where it is being typed.
class Place {
 public:
   explicit Place( CLI::App const & app ) : app_( &app ) {}

   void pass( std::string const & word ) {
      if ( awaitsValue_ ) {
         awaitsValue_ = nullptr;
      } else if ( word.size() > 1 && word.front() == '-' ) {
         auto const * const option = optionCalled( word );
         awaitsValue_ = option && option->get_items_expected_max() > 0 ? option : nullptr;
      } else if ( auto const * const command = commandCalled( word ) ) {
         app_ = command;
         arguments_ = 0;
      } else {
         ++arguments_;
      }
   }

   Completion completion( std::string const & typed ) const {
      Completion result;
      if ( awaitsValue_ ) {
         addValues( result, awaitsValue_->get_type_name() );
      } else if ( typed.starts_with( '-' ) ) {
         addOptions( result );
      } else {
         addCommands( result );
         addArgument( result );
         if ( result.candidates.empty() && result.also == Completion::Also::nothing ) {
            addOptions( result );
         }
      }
      std::erase_if( result.candidates, [ & ]( Candidate const & candidate ) {
         return !candidate.text.starts_with( typed );
      } );
      return result;
   }

 private:
   // The command itself and those that it is below, whose options it takes too.
   std::vector< CLI::App const * > levels() const {
      std::vector< CLI::App const * > levels;
      for ( auto const * app = app_; app; app = app->get_parent() ) {
         levels.push_back( app );
      }
      return levels;
   }

   CLI::Option const * optionCalled( std::string const & word ) const {
      for ( auto const * app : levels() ) {
         for ( auto const * option : optionsOf( *app ) ) {
            if ( option->check_name( word ) ) {
               return option;
            }
         }
      }
      return nullptr;
   }

   CLI::App const * commandCalled( std::string const & word ) const {
      for ( auto const * command : app_->get_subcommands( {} ) ) {
         if ( !command->get_name().empty() && command->get_name() == word && arguments_ == 0 ) {
            return command;
         }
      }
      return nullptr;
   }

   void addCommands( Completion & result ) const {
      for ( auto const * command : app_->get_subcommands( {} ) ) {
         if ( !command->get_name().empty() && arguments_ == 0 ) {
            result.candidates.push_back( { command->get_name(), command->get_description() } );
         }
      }
   }

   void addArgument( Completion & result ) const {
      std::size_t passed = 0;
      for ( auto const * option : optionsOf( *app_ ) ) {
         if ( option->get_positional() ) {
            passed += static_cast< std::size_t >( option->get_items_expected_max() );
            if ( arguments_ < passed ) {
               addValues( result, option->get_name( true ) );
               return;
            }
         }
      }
   }

   void addOptions( Completion & result ) const {
      for ( auto const * app : levels() ) {
         for ( auto const * option : optionsOf( *app ) ) {
            for ( auto const & name : option->get_lnames() ) {
               Candidate const candidate{ "--" + name, option->get_description() };
               if ( name != "help" || app == app_ ) {
                  result.candidates.push_back( candidate );
               }
            }
         }
      }
   }

   static void addValues( Completion & result, std::string const & type ) {
      if ( type == "INTERFACE" ) {
         result.also = Completion::Also::interfaces;
      } else if ( type == "FILE" ) {
         result.also = Completion::Also::files;
      } else if ( type.find( '|' ) != std::string::npos ) {
         for ( auto const & word : split( type, '|' ) ) {
            result.candidates.push_back( { word, "" } );
         }
      }
   }

   CLI::App const * app_;                      // the innermost command so far
   std::size_t arguments_ = 0;                 // of that command
   CLI::Option const * awaitsValue_ = nullptr; // the option before the word being typed
};

} // namespace

Completion completion( CLI::App const & app, std::vector< std::string > const & words ) {
   Place place( app );
   for ( std::size_t i = 0; i + 1 < words.size(); ++i ) {
      place.pass( words[ i ] );
   }
   return place.completion( words.empty() ? "" : words.back() );
}

std::string socketIn( std::vector< std::string > const & words, std::string const & otherwise ) {
   auto const last = std::find( words.rbegin(), words.rend(), "--socket" );
   return last == words.rend() || last == words.rbegin() ? otherwise : *std::prev( last );
}

} // namespace Valenctl
