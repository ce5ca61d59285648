// The text in which the last valid entities of a database are kept.
//
// The first line has what they are of: the server and the prefix. Each further line is an entity: its key, then the names
// and values of its fields, all in hexadecimal, because they may be any bytes.
#pragma once

#include "settings/Overlay.h"

#include <optional>
#include <string>

namespace Valend {

std::string databaseText( std::string const & origin, Settings::Entities const & entities );
// Nothing when the text is damaged, or of another origin.
std::optional< Settings::Entities > entitiesOfText( std::string const & origin,
                                                    std::string const & text );

} // namespace Valend
