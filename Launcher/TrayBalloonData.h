// CTrayBalloonData: a balloon that another program of the product asks the
// agent to show. It arrives as an archive of one object inside a WM_COPYDATA
// block tagged MDDB; senders build it with the same class and class name.
#pragma once

#include <stdint.h>

#include "Object.h"
#include "archive.h"
#include "unicodestring.h"

// The class travels under the name "CTrayBalloonData". Its fields are its
// archive form, in this order: three strings, then `infoFlags` as 4 raw
// bytes.
class CTrayBalloonData : public virtual Tsl::IObject {
 public:
  CTrayBalloonData() : infoFlags(0) {}
  CTrayBalloonData(const Tsl::CUnicodeString& caption, const Tsl::CUnicodeString& text,
                   const Tsl::CUnicodeString& extra, int32_t infoFlags)
      : caption(caption), text(text), extra(extra), infoFlags(infoFlags) {}

  // Reads the four fields from a loading archive, writes them to a storing
  // one; an archive in neither state is left alone.
  void Serialize(Tsl::CArchive& archive) override;
  ~CTrayBalloonData() override;

  Tsl::CUnicodeString caption;  // title of the balloon
  Tsl::CUnicodeString text;     // body of the balloon
  Tsl::CUnicodeString extra;    // carried by senders; the agent doesn't use it
  int32_t infoFlags;            // dwInfoFlags of the balloon
};

// Reads one balloon request: an archive's next object, which must be a
// CTrayBalloonData. A null pointer or another class in its place is
// ERR_BAD_ARCHIVE (result null where that returns); otherwise the errors of
// the archive.
Tsl::CPtr<CTrayBalloonData> ReadTrayBalloonData(Tsl::CArchive& archive);
