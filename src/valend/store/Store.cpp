#include "valend/store/Store.h"

namespace Valend {

namespace {

Quill::Ptr< Quill::Dir > dirUnder( Quill::Dir & parent, char const * name ) {
   auto const dir = Quill::make< Quill::Dir >();
   parent.entryIs( name, dir );
   return dir;
}

} // namespace

Store::Store()
    : entityManager( Quill::make< Orrery::EntityManager >() ),
      configDir( Quill::make< Valen::Config::ConfigDir >() ),
      globalConfig( Quill::make< Valen::Config::GlobalConfig >() ),
      agentConfigDir( Quill::make< Quill::Dir >() ),
      allIntfConfigDir( Quill::make< Interface::AllIntfConfigDir >() ),
      allIntfStatusDir( Quill::make< Interface::AllIntfStatusDir >() ),
      allIntfStatusLocalDir( Quill::make< Interface::AllIntfStatusLocalDir >() ),
      l3IntfStatusDir( Quill::make< L3::Intf::StatusDir >() ),
      allVrfStatusLocal( Quill::make< Ip::AllVrfStatusLocal >() ),
      statusDir( Quill::make< Valen::Status::StatusDir >() ), allIntf( Valen::allIntfFactory() ),
      allVrf( Valen::allVrfFactory() ) {
   auto & root = *entityManager->root();
   auto const config = dirUnder( root, "config" );
   config->entryIs( "valen", configDir );
   config->entryIs( "agents", agentConfigDir );
   auto const interface = dirUnder( root, "interface" );
   interface->entryIs( "config", allIntfConfigDir );
   interface->entryIs( "status", allIntfStatusDir );
   interface->entryIs( "local", allIntfStatusLocalDir );
   dirUnder( root, "l3" )->entryIs( "status", l3IntfStatusDir );
   dirUnder( root, "vrf" )->entryIs( "status", allVrfStatusLocal );
   root.entryIs( "status", statusDir );
   auto const model = dirUnder( root, "model" );
   model->entryIs( "interfaces", allIntf );
   model->entryIs( "vrfs", allVrf );
}

Store::~Store() = default;

Quill::Ptr< Valen::Config::Agent::MessageDir >
Store::messageDir( std::string const & agent ) const {
   auto const dir = Quill::ptrCast< Quill::Dir >( agentConfigDir->entry( agent ) );
   return dir ? Quill::ptrCast< Valen::Config::Agent::MessageDir >( dir->entry( "messages" ) )
              : nullptr;
}

} // namespace Valend
