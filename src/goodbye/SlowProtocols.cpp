#include "goodbye/SlowProtocols.h"

#include "goodbye/Bytes.h"

namespace Goodbye {

namespace {

constexpr U16 etherType = 0x8809;
Mac const destination( "01:80:c2:00:00:02" );

namespace Oam {
constexpr U8 subtype = 3;
enum Flags : U16 { dyingGasp = 1 << 1, localStable = 1 << 4, remoteStable = 1 << 6 };
constexpr U8 information = 0; // the code
constexpr U8 localInformation = 1;
constexpr U8 version = 1;
constexpr U8 activeMode = 1; // in the configuration
constexpr U16 maxUnitBytes = 1518;
} // namespace Oam

namespace Lacp {
constexpr U8 subtype = 1;
constexpr U8 version = 1;
enum Tlv : U8 { terminator = 0, actor = 1, partner = 2, collector = 3 };
constexpr U8 participantBytes = 20; // of a whole TLV
constexpr U8 collectorBytes = 16;
enum State : U8 { activity = 1 << 0, timeout = 1 << 1, aggregation = 1 << 2 };
} // namespace Lacp

} // namespace

Frame oamDyingGasp( OamDyingGasp const & gasp ) {
   Bytes unit;
   unit.u8( Oam::subtype );
   unit.u16( Oam::dyingGasp | Oam::localStable | Oam::remoteStable );
   unit.u8( Oam::information );
   unit.u8( Oam::localInformation ).u8( 16 ).u8( Oam::version ).u16( gasp.revision );
   unit.u8( 0 ); // state: forwards and receives
   unit.u8( gasp.active ? Oam::activeMode : 0 ).u16( Oam::maxUnitBytes );
   unit.text( Bytes().mac( gasp.source ).view().substr( 0, 3 ) ); // the vendor
   unit.u32( 0 );
   unit.u8( 0 ); // no more TLVs
   return ethernetFrame( gasp.source, destination, etherType, unit.view() );
}

Frame lacpGoodbye( LacpGoodbye const & goodbye ) {
   Bytes unit;
   unit.u8( Lacp::subtype ).u8( Lacp::version );
   unit.u8( Lacp::actor ).u8( Lacp::participantBytes );
   unit.u16( goodbye.systemPriority ).mac( goodbye.system ).u16( goodbye.key );
   unit.u16( goodbye.portPriority ).u16( goodbye.port );
   unit.u8( static_cast< U8 >( Lacp::aggregation | ( goodbye.active ? Lacp::activity : 0 ) |
                               ( goodbye.shortTimeout ? Lacp::timeout : 0 ) ) );
   unit.zeros( 3 );
   unit.u8( Lacp::partner ).u8( Lacp::participantBytes ).zeros( Lacp::participantBytes - 2 );
   unit.u8( Lacp::collector ).u8( Lacp::collectorBytes ).zeros( Lacp::collectorBytes - 2 );
   unit.u8( Lacp::terminator ).u8( 0 ).zeros( 50 );
   return ethernetFrame( goodbye.source, destination, etherType, unit.view() );
}

} // namespace Goodbye
