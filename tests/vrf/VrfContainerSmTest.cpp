#include "vrf/VrfContainerSm.h"

#include "intf/IntfIoSm.h"
#include "tests/support/LeakCheck.h"
#include "tests/support/OnChange.h"
#include "tests/support/RecordingRawTxPam.h"
#include "tests/support/SteppedClock.h"
#include "tests/support/TraceCapture.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>

namespace Valen {
namespace {

using Device = Interface::DeviceIntfStatusDir::IntfStatusAndDeviceName;
using Test::LeakCheck;
using Test::onChange;
using Test::RecordingRawTxPams;
using Test::SteppedClock;
using Test::TraceCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Texts = std::vector< std::string >;

class VrfContainerSmTest : public ::testing::Test {
 protected:
   VrfContainerSmTest() { configDir->globalConfigIs( Quill::make< Config::GlobalConfig >() ); }

   // An interface with messages, a supporting configuration and an L3 status; in no VRF yet.
   Quill::Ptr< Intf > addIntf( char const * name ) {
      auto const intf = allIntf->intfIs( name, allIntf->intfMessageIs( name ) );
      auto const config = Quill::make< Interface::IntfConfig >( name );
      config->adminShutdownDelaySupportedIs( true );
      intf->intfConfigIs( config );
      intf->l3IntfStatusIs( Quill::make< L3::Intf::Status >( name ) );
      return intf;
   }
   Quill::Ptr< Intf > joinVrf( char const * name ) {
      auto const intf = addIntf( name );
      vrfL3Intf->intfIs( intf );
      return intf;
   }
   void deviceIs( char const * name, char const * deviceName, U32 ifIndex ) {
      devices->intfStatusAndDeviceNameIs( name, Device{ nullptr, deviceName, ifIndex } );
   }
   void deviceDel( char const * name ) { devices->intfStatusAndDeviceNameDel( name ); }

   Quill::Ptr< VrfContainerSm > make() {
      return vrfContainerSmFactory( vrf, vrfL3Intf, allIntf, devices, clock.scheduler(), configDir,
                                    statusDir );
   }
   void create() { sm = make(); }

   static std::string line( std::string const & function, std::string const & text ) {
      return "void Valen::VrfContainerSm::" + function + ": " + text;
   }
   static std::string handleIntf( std::string const & text ) {
      return line( "handleIntf(Quill::Ptr<Valen::Intf>)", text );
   }
   static std::string handleDevice( std::string const & text ) {
      return line( "handleDevice(Corvid::IntfId)", text );
   }
   // What was traced by this unit alone.
   Texts traced() const {
      Texts texts;
      for ( auto const & each : trace.lines() ) {
         if ( each.unit == "VrfContainerSm" ) {
            texts.push_back( each.text );
         }
      }
      return texts;
   }

   LeakCheck leakCheck;
   TraceCapture trace;
   SteppedClock clock;
   RecordingRawTxPams pams;
   Quill::Ptr< Config::ConfigDir > configDir = Quill::make< Config::ConfigDir >();
   Quill::Ptr< Status::StatusDir > statusDir = Quill::make< Status::StatusDir >();
   Quill::Ptr< AllIntf > allIntf = allIntfFactory();
   Quill::Ptr< VrfL3Intf > vrfL3Intf = Quill::make< VrfL3Intf >( "red" );
   Quill::Ptr< Vrf > vrf = Quill::make< Vrf >( "red", "ns-red", vrfL3Intf );
   Quill::Ptr< Interface::DeviceIntfStatusDir > devices =
      Quill::make< Interface::DeviceIntfStatusDir >( "devices" );
   Quill::Ptr< VrfContainerSm > sm;
};

// --- Creation ------------------------------------------------------------------------------------

TEST_F( VrfContainerSmTest, CreationOpensTheEndpointInTheVrfsNamespace ) {
   create();
   EXPECT_EQ( sm->rawTxPam()->name(), Quill::String( "RawTxPam" ) );
   EXPECT_EQ( sm->rawTxPam()->netNs(), Corvid::NamespaceName( "ns-red" ) );
   EXPECT_TRUE( sm->rawTxPam()->enabled() );
   EXPECT_TRUE( sm->initialized() );
   EXPECT_THAT( trace.texts(), ElementsAre( line( "handleInitialized()", "vrf red" ) ) );
   EXPECT_EQ( trace.lines().front().unit, "VrfContainerSm" );
   EXPECT_EQ( trace.lines().front().level, 0 );
}

TEST_F( VrfContainerSmTest, CreationKeepsWhatItWasGiven ) {
   create();
   EXPECT_EQ( sm->vrfName(), L3::VrfName( "red" ) );
   EXPECT_EQ( sm->vrf(), vrf );
   EXPECT_EQ( sm->vrfL3Intf(), vrfL3Intf );
   EXPECT_EQ( sm->allIntf(), allIntf );
   EXPECT_EQ( sm->deviceIntfStatusDir(), devices );
   EXPECT_EQ( sm->taskScheduler(), clock.scheduler() );
   EXPECT_EQ( sm->configDir(), configDir );
   EXPECT_EQ( sm->statusDir(), statusDir );
   EXPECT_STREQ( sm->reactorName(), "VrfContainerSm" );
}

TEST_F( VrfContainerSmTest, InterfacesAlreadyInTheVrfGetTheirReactorsAndDevices ) {
   auto const one = joinVrf( "Ethernet1" );
   auto const two = joinVrf( "Ethernet2" );
   deviceIs( "Ethernet2", "et2", 8 );
   create();
   EXPECT_EQ( sm->intfSms(), 2u );
   EXPECT_EQ( one->device(), defaultDevice() );
   EXPECT_EQ( two->device(), ( Device{ nullptr, "et2", 8 } ) );
   auto const child = sm->intfSm( "Ethernet2" );
   EXPECT_EQ( child->intf(), two );
   EXPECT_EQ( child->rawTxPam(), sm->rawTxPam() );
   EXPECT_EQ( child->taskScheduler(), clock.scheduler() );
   EXPECT_EQ( child->configDir(), configDir );
   EXPECT_EQ( child->statusDir(), statusDir );
   EXPECT_EQ( sm->intfSm( "Ethernet3" ), nullptr );
   EXPECT_THAT( traced(), ElementsAre( line( "handleInitialized()", "vrf red" ),
                                       handleIntf( "Ethernet1" ), handleIntf( "Ethernet2" ) ) );
}

TEST_F( VrfContainerSmTest, CreationReplaysTheVrfRecordsOwnSet ) {
   joinVrf( "Ethernet1" );
   auto const other = Quill::make< VrfL3Intf >( "red" );
   other->intfIs( addIntf( "Ethernet2" ) );
   sm = vrfContainerSmFactory( vrf, other, allIntf, devices, clock.scheduler(), configDir,
                               statusDir );
   // Ethernet1 is walked, but not a member of the watched set; Ethernet2 is not walked.
   EXPECT_TRUE( trace.has( handleIntf( "Ethernet1" ) ) );
   EXPECT_EQ( sm->intfSms(), 0u );
}

TEST_F( VrfContainerSmTest, WithoutASetOrADirectoryNothingIsWatched ) {
   auto const intf = joinVrf( "Ethernet1" );
   deviceIs( "Ethernet1", "et1", 7 );
   sm = vrfContainerSmFactory( vrf, nullptr, allIntf, nullptr, clock.scheduler(), configDir,
                               statusDir );
   EXPECT_EQ( sm->intfSms(), 0u );
   trace.clear();
   joinVrf( "Ethernet2" );
   deviceIs( "Ethernet1", "et1", 8 );
   EXPECT_THAT( traced(), IsEmpty() );
   sm->handleDevice( "Ethernet1" );
   EXPECT_TRUE( trace.has( handleDevice( "removing device from intf" ) ) );
   sm->vrfL3IntfIs( vrfL3Intf );
   sm->handleIntf( intf );
   EXPECT_EQ( intf->device(), defaultDevice() );
}

// --- An endpoint that does not open --------------------------------------------------------------

class VrfContainerSmErrnoTest : public VrfContainerSmTest {
 protected:
   std::string errorLine( int number ) const {
      auto const text = std::to_string( number );
      return line( "handleInitialized()", "error (" + text + "): " + std::strerror( number ) +
                                             " type: open ns-red, " + text );
   }
};

TEST_F( VrfContainerSmErrnoTest, AMissingNamespaceLeavesTheContainerUninitialized ) {
   auto const early = joinVrf( "Ethernet1" );
   pams.enableErrno = ENOENT;
   auto const unexpected = Quill::unexpectedExceptions();
   create();
   EXPECT_FALSE( sm->initialized() );
   EXPECT_EQ( sm->intfSms(), 0u );
   EXPECT_THAT( trace.texts(),
                ElementsAre( line( "handleInitialized()", "vrf red" ), errorLine( 2 ),
                             line( "handleInitialized()", "valid exception" ) ) );
   EXPECT_THAT( trace.texts( 1 ),
                ElementsAre( "void Valen::VrfContainerSm::handleInitialized(): error (2): No such "
                             "file or directory type: open ns-red, 2",
                             "void Valen::VrfContainerSm::handleInitialized(): valid exception" ) );
   EXPECT_EQ( Quill::unexpectedExceptions(), unexpected );
   // Devices are ignored from now on; interfaces that join later are not.
   trace.clear();
   deviceIs( "Ethernet1", "et1", 7 );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleDevice( "Ethernet1" ), handleDevice( "not initialized" ) ) );
   EXPECT_EQ( trace.texts( 1 ), Texts{ handleDevice( "not initialized" ) } );
   EXPECT_EQ( early->device(), defaultDevice() );
   deviceIs( "Ethernet2", "et2", 8 );
   auto const late = joinVrf( "Ethernet2" );
   ASSERT_NE( sm->intfSm( "Ethernet2" ), nullptr );
   EXPECT_EQ( sm->intfSm( "Ethernet2" )->rawTxPam(), sm->rawTxPam() );
   EXPECT_FALSE( sm->rawTxPam()->enabled() );
   EXPECT_EQ( late->device().ifIndex, 8u );
}

TEST_F( VrfContainerSmErrnoTest, ANameThatIsNoNamespaceIsToleratedToo ) {
   joinVrf( "Ethernet1" );
   pams.enableErrno = EINVAL;
   create();
   EXPECT_FALSE( sm->initialized() );
   EXPECT_EQ( sm->intfSms(), 0u );
   EXPECT_THAT( trace.texts( 1 ),
                ElementsAre( errorLine( 22 ), line( "handleInitialized()", "valid exception" ) ) );
}

TEST_F( VrfContainerSmErrnoTest, AnyOtherErrorLeavesTheFactoryWithItsErrno ) {
   auto const intf = joinVrf( "Ethernet1" );
   for ( int const number : { EPERM, EMFILE, ENFILE } ) {
      pams.enableErrno = number;
      trace.clear();
      try {
         auto const created = make();
         ADD_FAILURE() << "nothing was thrown";
      } catch ( Quill::ErrnoException const & exception ) {
         EXPECT_EQ( errno, number );
         EXPECT_EQ( exception.number(), number );
         EXPECT_STREQ( exception.what(), "open ns-red" );
         EXPECT_TRUE( exception.expected() );
      }
      EXPECT_THAT( trace.texts(),
                   ElementsAre( line( "handleInitialized()", "vrf red" ), errorLine( number ),
                                line( "handleInitialized()", "valid exception" ) ) );
   }
   EXPECT_EQ( pams.live, 0u );
   EXPECT_EQ( VrfContainerSm::quillAllocation.live, 0u );
   EXPECT_FALSE( vrfL3Intf->hasNotifiees() );
   EXPECT_EQ( intf->refs(), 3u ) << "the model's, the set's and ours";
}

// An endpoint that throws what the test wants, and changes errno when it is destroyed.
class FailingRawTxPam final : public Corvid::RawTxPam {
   QUILL_TRACKED( Valen::FailingRawTxPam )
 public:
   explicit FailingRawTxPam( std::function< void() > fail )
       : RawTxPam( "failing" ), fail_( std::move( fail ) ) {}
   ~FailingRawTxPam() override { errno = EBADF; }
   void enabledIs( bool ) override { fail_(); }
   bool enabled() const noexcept override { return false; }
   void burstIs( U32, Quill::String const & ) override {}
   bool send( Corvid::Pkt const &, U32 ) override { return false; }
   int lastErrno() const noexcept override { return 0; }

 private:
   std::function< void() > const fail_;
};

class FailingRawTxPams final : public Corvid::RawTxPamProvider {
 public:
   explicit FailingRawTxPams( std::function< void() > fail )
       : fail_( std::move( fail ) ), old_( Corvid::rawTxPamProviderIs( this ) ) {}
   ~FailingRawTxPams() override { Corvid::rawTxPamProviderIs( old_ ); }
   Quill::Ptr< Corvid::RawTxPam > newRawTxPam( Quill::String ) override {
      return Quill::make< FailingRawTxPam >( fail_ );
   }

 private:
   std::function< void() > const fail_;
   Corvid::RawTxPamProvider * const old_;
};

// The trace outputs may fail in calls of their own.
class ErrnoSpoilingSink final : public Quill::TraceSink {
 public:
   ErrnoSpoilingSink() : old_( Quill::traceSinkIs( this ) ) {}
   ~ErrnoSpoilingSink() override { Quill::traceSinkIs( old_ ); }
   void line( Quill::TraceLine const & ) noexcept override { errno = EIO; }

 private:
   Quill::TraceSink * const old_;
};

TEST_F( VrfContainerSmErrnoTest, ErrnoIsRestoredWhateverTraceAndEndpointDoToIt ) {
   FailingRawTxPams const failing( [] { throw Quill::ErrnoException( "socket", EPERM ); } );
   ErrnoSpoilingSink const sink;
   int seen = 0;
   try {
      make();
   } catch ( Quill::ErrnoException const & ) {
      seen = errno;
   }
   EXPECT_EQ( seen, EPERM );
}

TEST_F( VrfContainerSmErrnoTest, WhatCountsIsTheThreadsErrnoNotTheExceptionsNumber ) {
   FailingRawTxPams const failing( [] {
      Quill::ErrnoException const exception( "socket", EPERM );
      errno = ENOENT;
      throw exception; // a copy: errno stays
   } );
   create();
   EXPECT_FALSE( sm->initialized() );
   EXPECT_EQ(
      trace.texts( 1 ).front(),
      line( "handleInitialized()", "error (2): No such file or directory type: socket, 1" ) );
}

TEST_F( VrfContainerSmErrnoTest, ExceptionsOfOtherTypesPassThroughUnchanged ) {
   FailingRawTxPams const failing( [] { throw Quill::RangeException( "too long" ); } );
   EXPECT_THROW( make(), Quill::RangeException );
   EXPECT_THAT( trace.texts(), ElementsAre( line( "handleInitialized()", "vrf red" ) ) );
   EXPECT_EQ( VrfContainerSm::quillAllocation.live, 0u );
}

// --- Members of the VRF --------------------------------------------------------------------------

TEST_F( VrfContainerSmTest, AnInterfaceMayJoinBeforeItsDeviceIsKnown ) {
   create();
   trace.clear();
   auto const intf = joinVrf( "Ethernet1" );
   ASSERT_NE( sm->intfSm( "Ethernet1" ), nullptr );
   EXPECT_EQ( intf->device(), defaultDevice() );
   EXPECT_THAT( traced(), ElementsAre( handleIntf( "Ethernet1" ) ) );
   trace.clear();
   deviceIs( "Ethernet1", "et1", 7 );
   EXPECT_EQ( intf->device(), ( Device{ nullptr, "et1", 7 } ) );
   EXPECT_THAT( traced(),
                ElementsAre( handleDevice( "Ethernet1" ), handleDevice( "adding device" ) ) );
   EXPECT_TRUE( statusDir->intfStatusHas( "Ethernet1" ) );
}

TEST_F( VrfContainerSmTest, AnInterfaceThatLeavesLosesItsReactorAndItsDevice ) {
   auto const intf = joinVrf( "Ethernet1" );
   deviceIs( "Ethernet1", "et1", 7 );
   create();
   trace.clear();
   Quill::Ptr< IntfSm > const child = sm->intfSm( "Ethernet1" );
   auto const watch = onChange< Intf::deviceAttr >(
      intf, [ & ] { EXPECT_EQ( sm->intfSm( "Ethernet1" ), nullptr ); } );
   vrfL3Intf->intfDel( intf );
   EXPECT_EQ( sm->intfSms(), 0u );
   EXPECT_FALSE( child->hasNotificationActive() );
   EXPECT_EQ( intf->device(), defaultDevice() );
   EXPECT_THAT( traced(),
                ElementsAre( handleIntf( "Ethernet1" ), handleIntf( "deleting intfSm" ) ) );
   EXPECT_EQ( trace.texts( 1 ), Texts{ handleIntf( "deleting intfSm" ) } );
}

TEST_F( VrfContainerSmTest, AnInterfaceThatLeavesWithoutAReactorKeepsItsDevice ) {
   create();
   auto const intf = addIntf( "Ethernet1" );
   intf->deviceIs( Device{ nullptr, "et1", 7 } ); // it has it from another VRF
   trace.clear();
   sm->handleIntf( intf );
   EXPECT_EQ( intf->device().ifIndex, 7u );
   EXPECT_THAT( traced(), ElementsAre( handleIntf( "Ethernet1" ) ) );
}

TEST_F( VrfContainerSmTest, ASecondNotificationKeepsTheReactorAndReadsTheDeviceAgain ) {
   auto const intf = joinVrf( "Ethernet1" );
   deviceIs( "Ethernet1", "et1", 7 );
   create();
   auto const child = sm->intfSm( "Ethernet1" );
   intf->deviceIs( defaultDevice() );
   sm->handleIntf( intf );
   EXPECT_EQ( sm->intfSm( "Ethernet1" ), child );
   EXPECT_EQ( intf->device().ifIndex, 7u );
}

TEST_F( VrfContainerSmTest, AnExistingChildIsReturnedWhateverTheArguments ) {
   joinVrf( "Ethernet1" );
   create();
   auto const child = sm->intfSm( "Ethernet1" );
   EXPECT_EQ( sm->intfSmIs( "Ethernet1", nullptr, nullptr, nullptr, nullptr, nullptr ), child );
   EXPECT_EQ( sm->intfSms(), 1u );
}

TEST_F( VrfContainerSmTest, ADeletedChildIsSilencedAndReturned ) {
   joinVrf( "Ethernet1" );
   create();
   auto const child = sm->intfSmDel( "Ethernet1" );
   ASSERT_NE( child, nullptr );
   EXPECT_FALSE( child->hasNotificationActive() );
   EXPECT_EQ( child->refs(), 1u );
   EXPECT_EQ( sm->intfSmDel( "Ethernet1" ), nullptr );
}

TEST_F( VrfContainerSmTest, AMissingHandleIsTracedAndChangesNothing ) {
   create();
   trace.clear();
   sm->handleIntf( nullptr );
   EXPECT_THAT( trace.texts(), ElementsAre( handleIntf( "" ) ) );
}

// --- Devices -------------------------------------------------------------------------------------

TEST_F( VrfContainerSmTest, ADeviceOfAnInterfaceOutsideTheModelIsIgnored ) {
   create();
   trace.clear();
   deviceIs( "Ethernet9", "et9", 9 );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleDevice( "Ethernet9" ),
                             handleDevice( "ignoring device as no intf in allIntf" ) ) );
   EXPECT_EQ( trace.texts( 1 ).size(), 1u );
}

TEST_F( VrfContainerSmTest, ADeviceOfAnInterfaceInAnotherVrfIsIgnored ) {
   create();
   auto const intf = addIntf( "Ethernet1" );
   trace.clear();
   deviceIs( "Ethernet1", "et1", 7 );
   EXPECT_EQ( intf->device(), defaultDevice() );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleDevice( "Ethernet1" ),
                             handleDevice( "ignoring device since intf not linked to vrf" ) ) );
   trace.clear();
   intf->deviceIs( Device{ nullptr, "et5", 5 } );
   deviceDel( "Ethernet1" );
   EXPECT_EQ( intf->device().ifIndex, 5u );
   EXPECT_THAT( trace.texts(), ElementsAre( handleDevice( "Ethernet1" ) ) );
}

TEST_F( VrfContainerSmTest, ARemovedDeviceIsTakenFromItsInterface ) {
   auto const intf = joinVrf( "Ethernet1" );
   deviceIs( "Ethernet1", "et1", 7 );
   create();
   trace.clear();
   deviceDel( "Ethernet1" );
   EXPECT_EQ( intf->device(), defaultDevice() );
   EXPECT_NE( sm->intfSm( "Ethernet1" ), nullptr );
   EXPECT_THAT( traced(), ElementsAre( handleDevice( "Ethernet1" ),
                                       handleDevice( "removing device from intf" ) ) );
   EXPECT_FALSE( statusDir->intfStatusHas( "Ethernet1" ) );
}

TEST_F( VrfContainerSmTest, ADeviceThatChangesIsHandedOnInOneStep ) {
   auto const intf = joinVrf( "Ethernet1" );
   deviceIs( "Ethernet1", "et1", 7 );
   create();
   U32 changes = 0;
   auto const watch = onChange< Intf::deviceAttr >( intf, [ & ] { ++changes; } );
   auto const entry = statusDir->intfStatus( "Ethernet1" );
   deviceIs( "Ethernet1", "et1", 12 );
   EXPECT_EQ( intf->device().ifIndex, 12u );
   EXPECT_EQ( changes, 1u );
   EXPECT_EQ( statusDir->intfStatus( "Ethernet1" ), entry );
}

TEST_F( VrfContainerSmTest, EveryDecisionIsLevelOneAndEveryEntryLevelZero ) {
   create();
   deviceIs( "Ethernet1", "et1", 7 );
   auto const intf = addIntf( "Ethernet1" );
   deviceIs( "Ethernet1", "et1", 8 );
   vrfL3Intf->intfIs( intf );
   deviceIs( "Ethernet1", "et1", 9 );
   deviceDel( "Ethernet1" );
   vrfL3Intf->intfDel( intf );
   sm->initializedIs( false );
   deviceIs( "Ethernet1", "et1", 7 );
   Texts decisions;
   for ( auto const & each : trace.lines() ) {
      if ( each.unit == "VrfContainerSm" && each.level > 0 ) {
         EXPECT_EQ( each.level, 1 );
         decisions.push_back( each.text );
      }
   }
   EXPECT_THAT( decisions,
                ElementsAre( handleDevice( "ignoring device as no intf in allIntf" ),
                             handleDevice( "ignoring device since intf not linked to vrf" ),
                             handleDevice( "adding device" ),
                             handleDevice( "removing device from intf" ),
                             handleIntf( "deleting intfSm" ), handleDevice( "not initialized" ) ) );
}

// --- What is watched -----------------------------------------------------------------------------

TEST_F( VrfContainerSmTest, TheWatchesCanBeMovedAndRemoved ) {
   create();
   auto const otherSet = Quill::make< VrfL3Intf >( "red" );
   auto const otherDir = Quill::make< Interface::DeviceIntfStatusDir >( "devices" );
   sm->vrfL3IntfIs( otherSet );
   sm->deviceIntfStatusDirIs( otherDir );
   trace.clear();
   joinVrf( "Ethernet1" );
   deviceIs( "Ethernet1", "et1", 7 );
   EXPECT_THAT( traced(), IsEmpty() );
   otherDir->intfStatusAndDeviceNameIs( "Ethernet1", Device{ nullptr, "et1", 8 } );
   EXPECT_TRUE( trace.has( handleDevice( "adding device" ) ) );
   otherSet->intfIs( allIntf->intf( "Ethernet1" ) );
   EXPECT_NE( sm->intfSm( "Ethernet1" ), nullptr );
   sm->vrfL3IntfDel();
   sm->deviceIntfStatusDirDel();
   EXPECT_FALSE( otherSet->hasNotifiees() );
   EXPECT_FALSE( otherDir->hasNotifiees() );
}

TEST_F( VrfContainerSmTest, InactiveNotificationsSilenceBothWatches ) {
   create();
   sm->hasNotificationActiveIs( false );
   trace.clear();
   joinVrf( "Ethernet1" );
   deviceIs( "Ethernet1", "et1", 7 );
   EXPECT_THAT( trace.lines(), IsEmpty() );
}

// --- Removal -------------------------------------------------------------------------------------

TEST_F( VrfContainerSmTest, DestructionRemovesEveryChildBeforeTheEndpoint ) {
   auto const one = joinVrf( "Ethernet1" );
   joinVrf( "Ethernet2" );
   deviceIs( "Ethernet1", "et1", 7 );
   create();
   U32 endpointsAtRemoval = 0;
   auto const watch =
      onChange< Intf::intfStatusAttr >( one, [ & ] { endpointsAtRemoval = pams.live; } );
   trace.clear();
   sm = nullptr;
   EXPECT_EQ( endpointsAtRemoval, 1u );
   EXPECT_EQ( pams.live, 0u );
   EXPECT_EQ( IntfSm::quillAllocation.live, 0u );
   EXPECT_EQ( statusDir->intfStatuss(), 0u );
   EXPECT_THAT( traced(), ElementsAre( line( "handleDestruction()", "vrf red" ) ) );
   EXPECT_EQ( one->device().ifIndex, 7u ) << "the record keeps its device";
   EXPECT_FALSE( vrfL3Intf->hasNotifiees() );
   EXPECT_FALSE( devices->hasNotifiees() );
}

TEST_F( VrfContainerSmTest, HandleDestructionRemovesTheChildrenByItself ) {
   joinVrf( "Ethernet1" );
   create();
   sm->handleDestruction();
   EXPECT_EQ( sm->intfSms(), 0u );
   EXPECT_EQ( IntfSm::quillAllocation.live, 0u );
}

TEST_F( VrfContainerSmTest, RemovalFromInsideItsOwnHandlerWaitsForTheHandler ) {
   auto const intf = joinVrf( "Ethernet1" );
   create();
   bool alive = false;
   auto const watch = onChange< Intf::deviceAttr >( intf, [ & ] {
      if ( sm ) {
         Quill::Reactor::retire( std::move( sm ) );
         alive = VrfContainerSm::quillAllocation.live == 1;
         trace.clear();
         deviceIs( "Ethernet1", "et1", 8 ); // silenced: must not be notified
         EXPECT_THAT( traced(), IsEmpty() );
      }
   } );
   deviceIs( "Ethernet1", "et1", 7 );
   EXPECT_TRUE( alive ) << "it stays alive until its handler returns";
   EXPECT_EQ( VrfContainerSm::quillAllocation.live, 0u );
   EXPECT_EQ( IntfSm::quillAllocation.live, 0u );
   EXPECT_EQ( pams.live, 0u );
   EXPECT_FALSE( statusDir->intfStatusHas( "Ethernet1" ) );
}

// The delay of an interface ends with its VRF, from inside the handler that started it.
TEST_F( VrfContainerSmTest, RemovalFromInsideAGrandchildsHandlerLeavesNothing ) {
   auto const intf = joinVrf( "Ethernet1" );
   deviceIs( "Ethernet1", "et1", 7 );
   create();
   auto const entry = statusDir->intfStatus( "Ethernet1" );
   auto const watch = onChange< Status::IntfStatus::delayedAttr >( entry, [ & ] {
      if ( sm ) {
         Quill::Reactor::retire( std::move( sm ) );
      }
   } );
   auto const config = const_cast< Interface::IntfConfig * >( intf->intfConfig().get() );
   config->adminShutdownDelayedIs( true );
   EXPECT_EQ( VrfContainerSm::quillAllocation.live, 0u );
   EXPECT_EQ( IntfSm::quillAllocation.live, 0u );
   EXPECT_EQ( IntfIoSm::quillAllocation.live, 0u );
   EXPECT_FALSE( entry->delayed() );
   EXPECT_EQ( clock.scheduler()->armedTasks(), 0u );
}

} // namespace
} // namespace Valen
