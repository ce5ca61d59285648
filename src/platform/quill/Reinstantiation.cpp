#include "platform/quill/Reinstantiation.h"

namespace Quill {

void parameterDiffers( char const * name, std::string const & newValue,
                       std::string const & currentValue ) {
   throw NameInUseException( std::string( "Reinstantiating the pointer interface where constructor "
                                          "parameter attribute " ) +
                             name + " has a different value of " + newValue +
                             " than the current value of " + currentValue );
}

} // namespace Quill
