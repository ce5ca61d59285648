#include "settings/Entity.h"

#include "settings/Counted.h"
#include "settings/ItemReader.h"
#include "settings/Limits.h"
#include "settings/YamlOutline.h"

namespace Settings {

namespace {

constexpr std::string_view delayName = "config:delay";
constexpr std::string_view vrfPrefix = "config:vrf:";
constexpr std::string_view interfacePrefix = "config:interface:";
constexpr std::size_t maxListValues = 100; // of a field

// The name in `key`, after `head`.
std::string nameAfter( std::string_view head, std::string const & key ) {
   return key.substr( head.size() );
}

class EntityReader : private ItemReader {
 public:
   using ItemReader::deviceTaken;
   using ItemReader::namespaceTaken;
   using ItemReader::unknownVrf;

   Entity read( std::string const & key, Fields const & fields ) {
      fileIs( key );
      Entity entity;
      auto const node = nodeOf( fields );
      if ( errorCount() != 0 ) { // with more than it may have, it is not looked at
         entity.kind = kindOf( key );
      } else if ( key == delayName ) {
         readDelay( node, entity );
      } else if ( key.starts_with( vrfPrefix ) ) {
         readVrf( node, nameAfter( vrfPrefix, key ), entity );
      } else if ( key.starts_with( interfacePrefix ) ) {
         readInterface( node, nameAfter( interfacePrefix, key ), entity );
      } else {
         error( node, "unknown key; expected " + std::string( delayName ) + ", " +
                         std::string( vrfPrefix ) + "NAME or " + std::string( interfacePrefix ) +
                         "NAME" );
      }
      for ( auto const & wrong : listedErrors() ) {
         entity.why += ( entity.why.empty() ? "" : "; " ) + wrong.text;
      }
      return entity;
   }

 private:
   static Entity::Kind kindOf( std::string const & key ) {
      return key == delayName                      ? Entity::Kind::delay
             : key.starts_with( vrfPrefix )       ? Entity::Kind::vrf
             : key.starts_with( interfacePrefix ) ? Entity::Kind::interface
                                               : Entity::Kind::unknown;
   }

   // As if the fields were lines of YAML.
   YAML::Node nodeOf( Fields const & fields ) {
      YAML::Node node( YAML::NodeType::Map );
      if ( fields.size() > maxEntityFields ) {
         error( node, counted( fields.size(), "field" ) + "; expected at most " +
                         std::to_string( maxEntityFields ) );
         return node;
      }
      for ( auto const & [ name, value ] : fields ) {
         if ( name.size() > maxEntityFieldBytes || value.size() > maxEntityFieldBytes ) {
            error( node, "a field of " + std::to_string( name.size() + value.size() ) +
                            " bytes; expected at most " + std::to_string( maxEntityFieldBytes ) );
            continue;
         }
         node.force_insert( YAML::Node( name ), valueOf( name, value ) );
      }
      return node;
   }

   // Text, but for a list. No text of a valid entity begins with a bracket, except the name of a device.
   YAML::Node valueOf( std::string const & name, std::string const & value ) {
      if ( name != "goodbyes" || !value.starts_with( '[' ) ) {
         return YAML::Node( value );
      }
      try {
         outlineOf( value, maxListValues );
         return YAML::Load( value );
      } catch ( YAML::Exception const & e ) {
         error( YAML::Mark::null_mark(), name + " is not valid YAML: " + e.msg );
      } catch ( YamlTooLarge const & e ) {
         error( YAML::Mark::null_mark(), name + " has " + e.text );
      }
      return YAML::Node();
   }

   void readDelay( YAML::Node const & node, Entity & entity ) {
      entity.kind = Entity::Kind::delay;
      bool given = false;
      mapping( node, "the delay",
               { { "shutdown-delay-ms", [ & ]( auto const & value ) {
                     given = true;
                     entity.delayMs =
                        delayAt( value, scalar( value, "shutdown-delay-ms" ) ).value_or( 0 );
                  } } } );
      if ( !given ) {
         error( node, "the delay has no \"shutdown-delay-ms\"" );
      }
   }

   void readVrf( YAML::Node const & node, std::string const & name, Entity & entity ) {
      entity.kind = Entity::Kind::vrf;
      entity.name = name;
      auto const item = vrfAt( node, name );
      if ( item && item->netNs && checkNamespace( item->netNsNode, *item->netNs ) ) {
         entity.netNs = *item->netNs;
      }
   }

   void readInterface( YAML::Node const & node, std::string const & name, Entity & entity ) {
      entity.kind = Entity::Kind::interface;
      entity.name = name;
      if ( auto item = interfaceAt( node, name ) ) {
         checkDevice( item->deviceNode, item->interface );
         entity.interface = std::move( item->interface );
      }
   }
};

} // namespace

Entity entityOf( std::string const & key, Fields const & fields ) {
   return EntityReader().read( key, fields );
}

std::string unknownVrfOf( InterfaceConfig const & interface ) {
   return EntityReader::unknownVrf( interface.vrf );
}

std::string namespaceTakenBy( std::string const & space, std::string const & vrf,
                              Place const & place ) {
   return EntityReader::namespaceTaken( space, vrf, place );
}

std::string deviceTakenBy( InterfaceConfig const & interface, std::string const & other,
                           Place const & place ) {
   return EntityReader::deviceTaken( interface, other, place );
}

} // namespace Settings
