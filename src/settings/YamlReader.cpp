#include "settings/YamlReader.h"

#include "platform/quill/Printable.h"
#include "settings/Counted.h"
#include "settings/Limits.h"
#include "settings/YamlOutline.h"

#include <algorithm>
#include <tuple>

namespace Settings {

namespace {

// One after the other, as they are listed.
auto order( std::size_t file, Place const & place ) {
   return std::tuple( file, place.line, place.column );
}

} // namespace

void YamlReader::fileIs( std::string const & file ) {
   auto const found = std::find( files_.begin(), files_.end(), file );
   current_ = static_cast< std::size_t >( found - files_.begin() );
   if ( found == files_.end() ) {
      files_.push_back( file );
   }
}

YAML::Node YamlReader::document( std::string const & text ) {
   try {
      auto const outline = outlineOf( text, maxValues - values_ );
      values_ += outline.values;
      auto const & begins = outline.documents;
      if ( begins.size() > 1 ) {
         error( begins[ 1 ], begins[ 1 ].pos == begins[ 0 ].pos
                                ? "not valid YAML here"
                                : "second YAML document; expected only one" );
      }
      return YAML::Load( text );
   } catch ( YAML::Exception const & e ) {
      error( e.mark, "not valid YAML: " + e.msg );
   } catch ( YamlTooLarge const & e ) {
      error( e.mark, e.text );
   }
   return YAML::Node();
}

Place YamlReader::placeOf( YAML::Mark const & mark ) const {
   return mark.is_null() ? Place{ file(), 0, 0 } : Place{ file(), mark.line + 1, mark.column + 1 };
}

void YamlReader::error( YAML::Node const & node, std::string text ) {
   error( node.Mark(), std::move( text ) );
}

void YamlReader::error( YAML::Mark const & mark, std::string text ) {
   ++errorCount_;
   Found found{ current_, { placeOf( mark ), std::move( text ) } };
   auto const place = std::upper_bound(
      errors_.begin(), errors_.end(), found, []( auto const & a, auto const & b ) {
         return order( a.file, a.error.place ) < order( b.file, b.error.place );
      } );
   errors_.insert( place, std::move( found ) );
   if ( errors_.size() > maxErrors ) {
      errors_.pop_back();
   }
}

std::vector< ConfigError > YamlReader::listedErrors() {
   std::vector< ConfigError > errors;
   for ( auto & found : errors_ ) {
      errors.push_back( std::move( found.error ) );
   }
   if ( errorCount_ > errors.size() ) {
      errors.push_back( { { errors.back().place.file },
                          "and " + counted( errorCount_ - errors.size(), "more error" ) } );
   }
   return errors;
}

void YamlReader::mapping( YAML::Node const & node, std::string const & what,
                          std::vector< Key > const & keys ) {
   keyed( node, what, [ & ]( auto const & key, auto const & value ) {
      auto const name = scalar( key, what );
      auto const found = std::find_if( keys.begin(), keys.end(),
                                       [ & ]( auto const & known ) { return name == known.name; } );
      if ( found != keys.end() ) {
         return found->handler( value );
      }
      std::vector< std::string > names;
      for ( auto const & known : keys ) {
         names.push_back( known.name );
      }
      error( key, "unknown key \"" + name + "\" in " + what + "; expected " + listed( names ) );
   } );
}

void YamlReader::keyed( YAML::Node const & node, std::string const & what,
                        KeyedHandler const & handler ) {
   if ( !node.IsMap() ) {
      return error( node, what + " must be a mapping (\"key: value\" lines)" );
   }
   std::map< std::string_view, YAML::Mark > seen;
   for ( auto const & entry : node ) {
      if ( !entry.first.IsScalar() ) {
         error( entry.first, "a key in " + what + " is not text; expected a name" );
         continue;
      }
      auto const & key = entry.first.Scalar();
      auto const [ first, added ] = seen.emplace( key, entry.first.Mark() );
      if ( added ) {
         handler( entry.first, entry.second );
      } else {
         error( entry.first, "duplicate key \"" + key + "\" in " + what +
                                firstDefinedAt( placeOf( first->second ) ) );
      }
   }
}

void YamlReader::sequence( YAML::Node const & node, std::string const & what,
                           Handler const & handler ) {
   if ( !isGiven( node ) ) {
      return;
   }
   if ( !node.IsSequence() ) {
      return error( node, what + " must be a list" );
   }
   for ( auto const & element : node ) {
      handler( element );
   }
}

std::string YamlReader::scalar( YAML::Node const & node, std::string const & what ) {
   if ( node.IsScalar() ) {
      return node.Scalar();
   }
   if ( !node.IsNull() ) {
      error( node, what + " must be a single value" );
   }
   return std::string();
}

bool YamlReader::truth( YAML::Node const & node, std::string const & what ) {
   auto const text = scalar( node, what );
   if ( node.IsScalar() && text != "true" && text != "false" ) {
      error( node, what + " is \"" + text + "\"; expected true or false" );
   }
   return text == "true";
}

std::optional< std::string > YamlReader::requiredName( YAML::Node const & parent,
                                                       YAML::Node const & node,
                                                       NameKey const & nameKey ) {
   auto const what = std::string( nameKey.owner ) + " " + nameKey.key;
   if ( !isGiven( node ) ) {
      if ( parent.IsMap() ) { // otherwise that error was reported
         error( parent, std::string( nameKey.owner ) + " has no \"" + nameKey.key + "\"" );
      }
      return std::nullopt;
   }
   auto const name = scalar( node, what );
   if ( !node.IsScalar() ) { // that error was reported
      return std::nullopt;
   }
   if ( name.empty() || name.size() > nameKey.maxBytes ) {
      error( node, what + " has " + std::to_string( name.size() ) + " bytes; expected 1 to " +
                      std::to_string( nameKey.maxBytes ) );
   } else if ( auto const where = Quill::unprintableIn( name ) ) {
      error( node, what + " is not printable text: " + *where );
   } else {
      return name;
   }
   return std::nullopt;
}

std::string YamlReader::quoted( std::string const & text ) {
   return "\"" + Quill::printable( text ) + "\"";
}

std::string YamlReader::listed( std::vector< std::string > const & names ) {
   std::string text;
   for ( std::size_t i = 0; i < names.size(); ++i ) {
      text += i == 0 ? "" : i + 1 == names.size() ? " or " : ", ";
      text += "\"" + names[ i ] + "\"";
   }
   return text;
}

std::string YamlReader::firstDefinedAt( Place const & place ) {
   return " (first defined at " + place.text() + ")";
}

} // namespace Settings
