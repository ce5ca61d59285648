// Where the configuration has the link of an interface.
#pragma once

#include "settings/Config.h"
#include "valend/kernel/LinkPort.h"

#include <optional>

namespace Valend {

LinkPlace placeOf( Settings::Config const & config, Settings::InterfaceConfig const & interface );

// The same for an interface that may have been removed since: then its link is still where it was
// `before`. Nothing if that belongs to another interface now.
std::optional< LinkPlace > placeNow( Settings::Config const & config, std::string const & interface,
                                     LinkPlace const & before );

} // namespace Valend
