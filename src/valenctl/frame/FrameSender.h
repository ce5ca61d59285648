// The sender of a goodbye frame: which addresses it is sent from.
#pragma once

#include "valenctl/frame/DeviceAddresses.h"

#include <stdexcept>

namespace Valenctl {

// The command is incomplete, or its options contradict each other.
class UsageError : public std::runtime_error {
 public:
   using runtime_error::runtime_error;
};

struct SenderOptions {
   std::string device; // to take missing addresses from; empty: none
   std::string netNs;  // the device's, a name or a path; empty: the process's own
   // Addresses from the command line; they override the device's.
   DeviceAddresses given;
};

class FrameSender {
 public:
   // Reads the addresses of the device, if there is one. Throws std::runtime_error when that fails.
   // Keeps a reference to `options`, which must outlive it.
   explicit FrameSender( SenderOptions const & options );

   std::string const & device() const noexcept { return options_.device; }
   SenderOptions const & options() const noexcept { return options_; }

   // An address the frame cannot do without. Each throws UsageError when neither the address nor a
   // device is given, and std::runtime_error when the device does not have one.
   Goodbye::Mac mac() const;
   Goodbye::Ipv4Prefix ipv4() const;
   Goodbye::Ipv6 linkLocal() const;

   // All addresses that are known; each may be missing.
   DeviceAddresses const & known() const noexcept { return known_; }

 private:
   template < class Address >
   Address const & needed( std::optional< Address > const & address, char const * option,
                           char const * what ) const;

   SenderOptions const & options_;
   DeviceAddresses known_;
};

} // namespace Valenctl
