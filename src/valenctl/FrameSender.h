// Who a goodbye frame comes from.
#pragma once

#include "valenctl/DeviceAddresses.h"

#include <stdexcept>

namespace Valenctl {

// What was asked for is not complete or does not fit together.
class UsageError : public std::runtime_error {
 public:
   using runtime_error::runtime_error;
};

struct SenderOptions {
   std::string device; // empty: all that is needed is given
   std::string netNs;  // the device's; empty: the process's own
   // What is given goes before what the device has.
   DeviceAddresses given;
};

class FrameSender {
 public:
   // Looks at the device if there is one. Throws std::runtime_error when that fails.
   explicit FrameSender( SenderOptions const & options );

   std::string const & device() const noexcept { return options_.device; }
   SenderOptions const & options() const noexcept { return options_; }

   // Each throws UsageError when neither the address nor a device is given, and std::runtime_error
   // when the device has none.
   Goodbye::Mac mac() const;
   Goodbye::Ipv4Prefix ipv4() const;
   Goodbye::Ipv6 linkLocal() const;

   // What is known, without being needed.
   DeviceAddresses const & known() const noexcept { return known_; }

 private:
   template < class Address >
   Address const & needed( std::optional< Address > const & address, char const * option,
                           char const * what ) const;

   SenderOptions const & options_;
   DeviceAddresses known_;
};

} // namespace Valenctl
