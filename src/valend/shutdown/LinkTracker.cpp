#include "valend/shutdown/LinkTracker.h"

#include "platform/quill/Exception.h"

namespace Valend {

void LinkTracker::reported( LinkPlace const & place, LinkSeen seen ) {
   if ( seen == LinkSeen::gone ) {
      links_.erase( place );
      return;
   }
   auto const [ found, added ] = links_.try_emplace( place, Link{ seen, false, std::nullopt } );
   auto & link = found->second;
   if ( added || link.last == seen || outdated( place, link, seen ) ) {
      return;
   }
   link = { seen, false, std::nullopt };
   if ( seen == LinkSeen::down ) {
      setDownOutside_( place );
   }
}

bool LinkTracker::outdated( LinkPlace const & place, Link const & link, LinkSeen seen ) const {
   if ( !link.changedAt || scheduler_->now() > *link.changedAt + echoTime ) {
      return false;
   }
   try {
      return port_.up( place ) != ( seen == LinkSeen::up );
   } catch ( Quill::ErrnoException const & ) {
      return true; // it is gone, and the report of that is on its way
   }
}

void LinkTracker::setUp( LinkPlace const & place ) {
   links_[ place ] = { LinkSeen::up, false, scheduler_->now() };
}

void LinkTracker::setDown( LinkPlace const & place ) {
   links_[ place ] = { LinkSeen::down, false, scheduler_->now() };
}

void LinkTracker::markWithoutGoodbye( LinkPlace const & place ) {
   links_[ place ].withoutGoodbye = true;
}

bool LinkTracker::downWithoutGoodbye( LinkPlace const & place ) const {
   auto const found = links_.find( place );
   return found != links_.end() && found->second.withoutGoodbye;
}

} // namespace Valend
