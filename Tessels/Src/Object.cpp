// The out-of-line part of IObject: its virtual table lives here, and the
// default serialisation, which no class that travels through archives keeps.
#include "Object.h"

namespace Tsl {

void IObject::Serialize(CArchive&) { TSL_INTERNAL_ERROR(L"Object", 22); }

IObject::~IObject() {}

}  // namespace Tsl
