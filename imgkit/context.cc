// Progress reporting and failure bookkeeping shared by every reader.
#include <algorithm>

#include "imgkit/internal.h"

namespace imk {

bool ProgressMeter::begin(int64_t total) {
  total_ = total > 0 ? total : 1;
  steps_ = static_cast<int>(std::min<int64_t>(total_, kSteps));
  reported_ = 0;
  if (fn_ && fn_(0, steps_) != 0) stopped_ = true;
  return stopped_;
}

bool ProgressMeter::advance(int64_t done) {
  if (!fn_ || stopped_ || reported_ < 0) return stopped_;
  if (done > total_) done = total_;
  const int step = static_cast<int>(done * steps_ / total_);
  while (reported_ < step) {
    ++reported_;
    if (fn_(reported_, steps_) != 0) {
      stopped_ = true;
      break;
    }
  }
  return stopped_;
}

int ReadContext::fail(int code, const char* text) {
  if (errorText_.empty() && text) errorText_ = text;
  return code;
}

int ReadContext::damaged(int code, const char* text) {
  fail(code, text);
  return ignoreErrors() ? IMK_OK : code;
}

int ReadContext::requireData(uint64_t least, uint64_t present) {
  if (least > present && !ignoreErrors()) return fail(IMK_ERR_CORRUPT, "truncated");
  if (least / kLeastShare > present) return fail(IMK_ERR_BAD_FILE, "too little data for the picture");
  return IMK_OK;
}

bool ReadContext::reduceTarget(int32_t* fitWidth, int32_t* fitHeight) const {
  if (!(options.flags & IMK_FLAG_REDUCE) || options.fitWidth <= 0 || options.fitHeight <= 0)
    return false;
  *fitWidth = options.fitWidth;
  *fitHeight = options.fitHeight;
  return true;
}

}  // namespace imk
