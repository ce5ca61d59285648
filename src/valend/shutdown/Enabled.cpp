#include "valend/shutdown/Enabled.h"

#include "valend/base/Errors.h"

namespace Valend {

Refusal whyNotUp( LinkAnswer const & answer ) {
   return answer.missing() ? Errors::noDevice( answer.why ) : Errors::linkFailed( answer.why );
}

} // namespace Valend
