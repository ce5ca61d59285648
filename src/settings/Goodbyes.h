// For which protocols valend learns goodbyes: it derives them from the frames that leave an interface.
#pragma once

#include <array>
#include <set>
#include <string>
#include <string_view>

namespace Settings {

// What valend can learn, in the order of documents.
inline constexpr std::array< std::string_view, 18 > goodbyeProtocols{
   "lldp",  "ra",   "vrrp",  "ospf", "ospfv3", "bfd", "pim", "lacp", "rip",
   "ripng", "isis", "eigrp", "mdns", "igmp",   "mld", "cdp", "hsrp", "oam" };

// The names of agents that begin with this are of valend itself, which publishes what it learns under them:
// "learned-lldp".
inline constexpr std::string_view learnedAgents = "learned-";

class Goodbyes {
 public:
   using Protocols = std::set< std::string >;

   // None.
   Goodbyes() = default;
   // Of every protocol that valend can learn.
   static Goodbyes learned();
   // Of these protocols only: one or more of goodbyeProtocols.
   static Goodbyes of( Protocols protocols );

   bool any() const noexcept { return all_ || !protocols_.empty(); }
   bool has( std::string const & protocol ) const {
      return all_ || protocols_.contains( protocol );
   }
   // As it is written in the configuration: "learned", "off", "[lldp, ra]".
   std::string text() const;

   bool operator==( Goodbyes const & ) const = default;

 private:
   bool all_ = false;
   Protocols protocols_; // empty when `all_`
};

} // namespace Settings
