// Who may call what: root everything, others by the groups that they are in.
#pragma once

#include "varlink/Call.h"

#include <functional>
#include <optional>
#include <string>

namespace Valend {

enum class Right : U8 {
   none,   // what the service is, and no more
   read,   // everything that changes nothing
   change, // everything
};

class Access {
 public:
   // The groups, by name or number, whose members may read, and change. Root may do everything; a
   // group that the system does not know has no members.
   Access( std::string readers, std::string changers );

   // The ids of the two groups that the system knows now.
   struct Groups {
      std::optional< U32 > readers;
      std::optional< U32 > changers;
   };
   // Looks the groups up again: one may have been added since. The function may run in any thread, and later than
   // this exists. It may wait, for a directory of users on another machine.
   std::function< Groups() > lookUp() const;
   void groupsAre( Groups groups ) noexcept { groups_ = groups; }

   Right of( Varlink::Caller const & caller ) const noexcept;
   // Throws Varlink's PermissionDenied when the caller lacks the right. `method` is the name in its
   // message: "permission denied: Enable requires root or group valen-admin (you are
   // alice)".
   void require( Right right, Varlink::Caller const & caller, std::string const & method ) const;

 private:
   std::string const readers_;
   std::string const changers_;
   Groups groups_;
};

} // namespace Valend
