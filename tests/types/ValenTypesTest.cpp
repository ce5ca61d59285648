// The model: what its mutators change, notify and reject.
#include "types/ValenTypes.h"

#include "tests/support/LeakCheck.h"

#include <gmock/gmock.h>

namespace Valen {
namespace {

using Device = Interface::DeviceIntfStatusDir::IntfStatusAndDeviceName;
using Test::LeakCheck;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Texts = std::vector< std::string >;

// Records each change as "attribute key".
template < class T > class Recorder final : public T::NotifieeConst {
 public:
   explicit Recorder( Quill::Ptr< T const > entity ) { this->notifierIs( std::move( entity ) ); }

   void onAttribute( Quill::AttrId id, void const * key ) override {
      auto const & attribute = *T::staticType().attribute( id );
      auto const keyText = key ? attribute.keyText( key ) : std::string();
      changes.push_back( attribute.name + ( keyText.empty() ? "" : " " + keyText ) );
   }

   Texts changes;
};

class ValenTypesTest : public ::testing::Test {
 protected:
   // The text of the name-in-use error that `rejected` raises.
   template < class Refused > static std::string nameInUseText( Refused const & rejected ) {
      try {
         rejected();
      } catch ( Quill::NameInUseException const & exception ) {
         return exception.what();
      }
      return "nothing was thrown";
   }
   static std::string sentence( std::string const & parameter, std::string const & newValue,
                                std::string const & currentValue ) {
      return "Reinstantiating the pointer interface where constructor parameter attribute " +
             parameter + " has a different value of " + newValue + " than the current value of " +
             currentValue;
   }

   LeakCheck leakCheck;
   Quill::Ptr< AllIntf > allIntf = allIntfFactory();
   Quill::Ptr< AllVrf > allVrf = allVrfFactory();
};

// --- AllIntf -------------------------------------------------------------------------------------

TEST_F( ValenTypesTest, TheFactoriesMakeEmptyRoots ) {
   EXPECT_EQ( allIntf->intfs(), 0u );
   EXPECT_EQ( allIntf->intfMessages(), 0u );
   EXPECT_EQ( allVrf->vrfs(), 0u );
   EXPECT_EQ( allVrf->vrfL3Intfs(), 0u );
   EXPECT_NE( allIntfFactory(), allIntf );
}

TEST_F( ValenTypesTest, AMessageRecordIsMadeOnceAndRemoved ) {
   Recorder< AllIntf > const recorder( allIntf );
   auto const message = allIntf->intfMessageIs( "Ethernet1" );
   EXPECT_EQ( allIntf->intfMessageIs( "Ethernet1" ), message );
   EXPECT_EQ( message->intfId(), Corvid::IntfId( "Ethernet1" ) );
   EXPECT_EQ( message->parent(), allIntf.get() );
   allIntf->intfMessageDel( "Ethernet2" );
   allIntf->intfMessageDel( "Ethernet1" );
   allIntf->intfMessageDel( "Ethernet1" );
   EXPECT_THAT( recorder.changes, ElementsAre( "intfMessage Ethernet1", "intfMessage Ethernet1" ) );
   EXPECT_EQ( message->parent(), nullptr );
}

TEST_F( ValenTypesTest, AnIntfIsMadeOnceAndNotifiedOnce ) {
   auto const message = allIntf->intfMessageIs( "Ethernet1" );
   Recorder< AllIntf > const recorder( allIntf );
   auto const intf = allIntf->intfIs( "Ethernet1", message );
   EXPECT_EQ( allIntf->intfIs( "Ethernet1", message ), intf );
   EXPECT_EQ( allIntf->intf( "Ethernet1" ), intf );
   EXPECT_EQ( intf->intfMessage(), message );
   EXPECT_THAT( recorder.changes, ElementsAre( "intf Ethernet1" ) );
}

TEST_F( ValenTypesTest, AnIntfOfAnotherMessageRecordIsRejected ) {
   auto const message = allIntf->intfMessageIs( "Ethernet1" );
   auto const intf = allIntf->intfIs( "Ethernet1", message );
   auto const other = Quill::make< IntfMessage >( "Ethernet1" );
   Recorder< AllIntf > const recorder( allIntf );
   EXPECT_EQ( nameInUseText( [ & ] { allIntf->intfIs( "Ethernet1", other ); } ),
              sentence( "_intfMessage", Quill::display( other ), Quill::display( message ) ) );
   EXPECT_EQ( allIntf->intf( "Ethernet1" ), intf );
   EXPECT_EQ( intf->intfMessage(), message );
   EXPECT_THAT( recorder.changes, IsEmpty() );
   allIntf->intfDel( "Ethernet1" );
   EXPECT_EQ( allIntf->intfIs( "Ethernet1", other )->intfMessage(), other );
}

TEST_F( ValenTypesTest, DelAllNotifiesEveryMember ) {
   for ( auto const * const name : { "Ethernet1", "Ethernet2" } ) {
      allIntf->intfIs( name, allIntf->intfMessageIs( name ) );
   }
   Recorder< AllIntf > const recorder( allIntf );
   allIntf->intfDelAll();
   allIntf->intfMessageDelAll();
   EXPECT_THAT( recorder.changes, ElementsAre( "intf Ethernet1", "intf Ethernet2",
                                               "intfMessage Ethernet1", "intfMessage Ethernet2" ) );
   EXPECT_EQ( allIntf->intfs() + allIntf->intfMessages(), 0u );
}

// --- IntfMessage ---------------------------------------------------------------------------------

TEST_F( ValenTypesTest, MessagesComeGoAndAreExchangedByAgent ) {
   auto const message = allIntf->intfMessageIs( "Ethernet1" );
   auto const one = Quill::make< Config::Agent::Message >( "Ethernet1" );
   auto const two = Quill::make< Config::Agent::Message >( "Ethernet1" );
   Recorder< IntfMessage > const recorder( message );
   message->messageIs( "a", nullptr );
   EXPECT_THAT( recorder.changes, IsEmpty() ) << "absent and null: no change";
   message->messageIs( "a", one );
   message->messageIs( "a", one );
   EXPECT_THAT( recorder.changes, ElementsAre( "message a" ) );
   message->messageIs( "a", two );
   EXPECT_EQ( message->message( "a" ), two );
   EXPECT_EQ( recorder.changes.size(), 2u );
   message->messageIs( "a", nullptr );
   EXPECT_FALSE( message->messageHas( "a" ) );
   EXPECT_EQ( recorder.changes.size(), 3u );
   message->messageDel( "a" );
   EXPECT_EQ( recorder.changes.size(), 3u );
   message->messageIs( "b", one );
   message->messageIs( "c", two );
   message->messageDelAll();
   EXPECT_EQ( message->messages(), 0u );
   EXPECT_EQ( recorder.changes.size(), 7u );
}

// --- Intf ----------------------------------------------------------------------------------------

TEST_F( ValenTypesTest, TheHandlesOfAnIntfNotifyWhenTheyChange ) {
   auto const intf = Quill::make< Intf >( "Ethernet1", nullptr );
   Recorder< Intf > const recorder( intf );
   auto const l3IntfStatus = Quill::make< L3::Intf::Status >( "Ethernet1" );
   auto const intfConfig = Quill::make< Interface::IntfConfig >( "Ethernet1" );
   auto const intfStatus = Quill::make< Status::IntfStatus >( "Ethernet1" );
   for ( int times = 0; times < 2; ++times ) {
      intf->l3IntfStatusIs( l3IntfStatus );
      intf->intfConfigIs( intfConfig );
      intf->intfStatusIs( intfStatus );
   }
   EXPECT_THAT( recorder.changes, ElementsAre( "l3IntfStatus", "intfConfig", "intfStatus" ) );
   intf->l3IntfStatusIs( Quill::make< L3::Intf::Status >( "Ethernet1" ) ); // another, as equal
   intf->intfConfigIs( nullptr );
   intf->intfConfigIs( nullptr );
   EXPECT_EQ( recorder.changes.size(), 5u );
   EXPECT_EQ( intf->intfConfig(), nullptr );
}

TEST_F( ValenTypesTest, ADeviceNotifiesWhenAnyOfItsPartsChanges ) {
   auto const intf = Quill::make< Intf >( "Ethernet1", nullptr );
   auto const status = Quill::make< Interface::IntfStatus >( "Ethernet1" );
   Recorder< Intf > const recorder( intf );
   intf->deviceIs( defaultDevice() );
   EXPECT_THAT( recorder.changes, IsEmpty() );
   intf->deviceIs( Device{ nullptr, "et1", 7 } );
   intf->deviceIs( Device{ nullptr, "et1", 7 } );
   EXPECT_EQ( recorder.changes.size(), 1u );
   intf->deviceIs( Device{ nullptr, "et1", 8 } );
   intf->deviceIs( Device{ nullptr, "et2", 8 } );
   intf->deviceIs( Device{ status, "et2", 8 } );
   EXPECT_EQ( recorder.changes.size(), 4u );
   EXPECT_EQ( intf->device(), ( Device{ status, "et2", 8 } ) );
}

TEST_F( ValenTypesTest, TheDefaultDeviceIsTheEmptyOne ) {
   EXPECT_EQ( defaultDevice().intfStatus, nullptr );
   EXPECT_TRUE( defaultDevice().deviceName.empty() );
   EXPECT_EQ( defaultDevice().ifIndex, 0u );
   EXPECT_EQ( Quill::make< Intf >( "Ethernet1", nullptr )->device(), defaultDevice() );
   EXPECT_EQ( &defaultDevice(), &defaultDevice() );
}

TEST_F( ValenTypesTest, AnIntfWithAHandleOutlivesItsCollection ) {
   auto const set = allVrf->vrfL3IntfIs( "red" );
   set->intfIs( allIntf->intfIs( "Ethernet1", allIntf->intfMessageIs( "Ethernet1" ) ) );
   allIntf->intfDel( "Ethernet1" );
   EXPECT_EQ( Intf::quillAllocation.live, 1u );
   set->intfDelAll();
   EXPECT_EQ( Intf::quillAllocation.live, 0u );
}

// --- AllVrf --------------------------------------------------------------------------------------

TEST_F( ValenTypesTest, AVrfIsMadeOnceAndRemoved ) {
   Recorder< AllVrf > const recorder( allVrf );
   auto const set = allVrf->vrfL3IntfIs( "red" );
   EXPECT_EQ( allVrf->vrfL3IntfIs( "red" ), set );
   auto const vrf = allVrf->vrfIs( "red", "ns-red", set );
   EXPECT_EQ( allVrf->vrfIs( "red", "ns-red", set ), vrf );
   EXPECT_EQ( vrf->nsName(), Corvid::NamespaceName( "ns-red" ) );
   EXPECT_EQ( vrf->vrfL3Intf(), set );
   EXPECT_THAT( recorder.changes, ElementsAre( "vrfL3Intf red", "vrf red" ) );
   allVrf->vrfDel( "red" );
   allVrf->vrfDel( "red" );
   allVrf->vrfL3IntfDelAll();
   EXPECT_EQ( recorder.changes.size(), 4u );
}

TEST_F( ValenTypesTest, AVrfOfAnotherNamespaceOrSetIsRejectedNamespaceFirst ) {
   auto const set = allVrf->vrfL3IntfIs( "red" );
   auto const vrf = allVrf->vrfIs( "red", "ns-red", set );
   auto const other = Quill::make< VrfL3Intf >( "red" );
   Recorder< AllVrf > const recorder( allVrf );
   EXPECT_EQ( nameInUseText( [ & ] { allVrf->vrfIs( "red", "ns-new", other ); } ),
              sentence( "_nsName", "ns-new", "ns-red" ) );
   EXPECT_EQ( nameInUseText( [ & ] { allVrf->vrfIs( "red", "ns-red", other ); } ),
              sentence( "_vrfL3Intf", Quill::display( other ), Quill::display( set ) ) );
   EXPECT_EQ( allVrf->vrf( "red" ), vrf );
   EXPECT_EQ( vrf->nsName(), Corvid::NamespaceName( "ns-red" ) );
   EXPECT_THAT( recorder.changes, IsEmpty() );
   allVrf->vrfDelAll();
   EXPECT_EQ( allVrf->vrfIs( "red", "ns-new", set )->nsName(), Corvid::NamespaceName( "ns-new" ) );
}

TEST_F( ValenTypesTest, TheSetOfAVrfHoldsEachHandleOnce ) {
   auto const set = allVrf->vrfL3IntfIs( "red" );
   auto const intf = Quill::make< Intf >( "Ethernet1", nullptr );
   auto const twin = Quill::make< Intf >( "Ethernet1", nullptr );
   Recorder< VrfL3Intf > const recorder( set );
   set->intfIs( intf );
   set->intfIs( intf );
   set->intfIs( twin ); // the same id, another object
   EXPECT_EQ( set->intfs(), 2u );
   set->intfDel( intf );
   set->intfDel( intf );
   EXPECT_FALSE( set->intfHas( intf ) );
   EXPECT_TRUE( set->intfHas( twin ) );
   set->intfDelAll();
   EXPECT_EQ( recorder.changes.size(), 4u );
}

// --- The generic face ----------------------------------------------------------------------------

Texts attributeNames( Quill::EntityType const & type ) {
   Texts names;
   for ( auto const & attribute : type.attributes ) {
      names.emplace_back( attribute.name );
   }
   return names;
}

TEST_F( ValenTypesTest, EveryTypeNamesItsAttributesInOrder ) {
   EXPECT_THAT( attributeNames( AllIntf::staticType() ), ElementsAre( "intf", "intfMessage" ) );
   EXPECT_THAT( attributeNames( IntfMessage::staticType() ), ElementsAre( "intfId", "message" ) );
   EXPECT_THAT( attributeNames( Intf::staticType() ),
                ElementsAre( "intfId", "intfMessage", "l3IntfStatus", "intfConfig", "intfStatus",
                             "device" ) );
   EXPECT_THAT( attributeNames( AllVrf::staticType() ), ElementsAre( "vrf", "vrfL3Intf" ) );
   EXPECT_THAT( attributeNames( Vrf::staticType() ),
                ElementsAre( "vrfName", "nsName", "vrfL3Intf" ) );
   EXPECT_THAT( attributeNames( VrfL3Intf::staticType() ), ElementsAre( "vrfName", "intf" ) );
   EXPECT_STREQ( Intf::staticType().name, "Valen::Intf" );
}

TEST_F( ValenTypesTest, AVrfCanBeMadeFromGenericValues ) {
   auto const set = allVrf->vrfL3IntfIs( "red" );
   std::array< Quill::Value, 3 > const parameters{
      Quill::String( "red" ), Quill::String( "ns-red" ), Quill::Ptr< Quill::Entity const >( set ) };
   auto const vrf = Quill::ptrCast< Vrf >( Vrf::staticType().construct( parameters ) );
   ASSERT_NE( vrf, nullptr );
   EXPECT_EQ( vrf->vrfName(), L3::VrfName( "red" ) );
   EXPECT_EQ( vrf->vrfL3Intf(), set );
   EXPECT_THROW( Vrf::staticType().construct( {} ), Quill::RangeException );
}

} // namespace
} // namespace Valen
