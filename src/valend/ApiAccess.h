// Who may call what: root everything, others by the groups that they are in.
#pragma once

#include "valend/ApiCall.h"

#include <optional>
#include <string>

namespace Valend {

enum class ApiRight : U8 {
   none,   // what the service is, and no more
   read,   // everything that changes nothing
   change, // everything
};

class ApiAccess {
 public:
   static constexpr char const * defaultReaders = "valen";
   static constexpr char const * defaultChangers = "valen-admin";

   // The groups, by name or number, whose members may read, and change. Root may do everything; a
   // group that the system does not know has no members.
   explicit ApiAccess( std::string readers = defaultReaders,
                       std::string changers = defaultChangers );

   // Asks the system for the groups again: one may have come since.
   void refresh();

   ApiRight of( ApiCaller const & caller ) const noexcept;
   // The line for a caller who has not the right that `method` takes: "uid 1000 may not call
   // org.valen.Agent.Enable: that takes root or the group "valen-admin"".
   std::string refusal( ApiCaller const & caller, std::string const & method,
                        ApiRight needed ) const;

 private:
   std::string const readers_;
   std::string const changers_;
   std::optional< U32 > readersId_;
   std::optional< U32 > changersId_;
};

} // namespace Valend
