// Corvid::RawTxPam: a raw transmit endpoint, one per VRF, that sends whole frames out of kernel
// devices of one network namespace.
#pragma once

#include "platform/corvid/NamespaceName.h"
#include "platform/corvid/Pkt.h"

namespace Corvid {

class RawTxPam : public Quill::PtrInterface {
 public:
   // A new endpoint of the process's provider. `name` is for traces and errors.
   static Quill::Ptr< RawTxPam > rawTxPamFactory( Quill::String name );

   Quill::String const & name() const noexcept { return name_; }

   // Places the endpoint in a namespace. Takes effect when it is enabled.
   void netNsIs( NamespaceName netNs ) { netNs_ = std::move( netNs ); }
   NamespaceName const & netNs() const noexcept { return netNs_; }

   // Opens the endpoint in its namespace, or closes it. Throws Quill::ErrnoException, and opens
   // nothing, if the kernel refuses: ENOENT if the namespace does not exist, EINVAL if its name
   // refers to something else, EPERM without the privilege, EMFILE or ENFILE if descriptors run
   // out.
   virtual void enabledIs( bool enabled ) = 0;
   virtual bool enabled() const noexcept = 0;

   // Announces packets for the device `deviceName`, which is known to have `ifIndex`. The index can
   // pass to another device before the watcher learns of it, so the endpoint checks once per burst
   // and does not send to any other device. Packets for another device are a burst of their own.
   virtual void burstIs( U32 ifIndex, Quill::String const & deviceName ) = 0;

   // Sends `pkt` unchanged out of device `ifIndex` of the endpoint's namespace. Never blocks.
   //   ifIndex   kernel interface index in that namespace
   //   returns   whether the kernel took the whole packet; if not, the errno is in lastErrno()
   //   keeps     nothing: `pkt` may be destroyed on return
   [[nodiscard]] virtual bool send( Pkt const & pkt, U32 ifIndex ) = 0;
   virtual int lastErrno() const noexcept = 0;

 protected:
   explicit RawTxPam( Quill::String name ) : name_( std::move( name ) ) {}

 private:
   Quill::String name_;
   NamespaceName netNs_;
};

// Makes the endpoints of a process: on packet sockets of the kernel in a daemon, recorders in
// tests.
class RawTxPamProvider {
 public:
   virtual ~RawTxPamProvider() = default;
   virtual Quill::Ptr< RawTxPam > newRawTxPam( Quill::String name ) = 0;
};

// Installs the provider, which must outlive its use; null removes it. Returns the old one.
RawTxPamProvider * rawTxPamProviderIs( RawTxPamProvider * provider ) noexcept;

} // namespace Corvid
