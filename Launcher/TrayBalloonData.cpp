// The balloon request's archive form and its registration by class name, the
// first class that other programs send to the agent as an object.
#include "TrayBalloonData.h"

#include "classregistry.h"

TSL_REGISTER_CLASS(CTrayBalloonData);

void CTrayBalloonData::Serialize(Tsl::CArchive& archive) {
  if (archive.IsLoading()) {
    archive >> caption >> text >> extra >> infoFlags;
  } else if (archive.IsStoring()) {
    archive << caption << text << extra << infoFlags;
  }
}

CTrayBalloonData::~CTrayBalloonData() {}

Tsl::CPtr<CTrayBalloonData> ReadTrayBalloonData(Tsl::CArchive& archive) {
  Tsl::CPtr<CTrayBalloonData> balloon = archive.ReadObject().DynamicCast<CTrayBalloonData>();
  if (balloon.IsNull()) archive.GenerateBadArchiveError();
  return balloon;
}
