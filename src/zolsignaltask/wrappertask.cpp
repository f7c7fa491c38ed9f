#include "zolsignaltask.h"

WrapperTask::WrapperTask()
    : alive(std::make_shared<std::atomic<bool>>(true)),
      done(std::make_shared<std::atomic<bool>>(false)),
      holders(std::make_shared<bool>(false)) {}

WrapperTask::WrapperTask(const WrapperTask& other) = default;

// Member-wise: the three flags become shared with `other`. Whatever this object held before is
// released without the destructor's rule, so overwriting a registration leaves the old task's
// `alive` flag as it was.
WrapperTask& WrapperTask::operator=(const WrapperTask& other) = default;

WrapperTask::~WrapperTask() {
    // A flag pointer can only be empty if a caller reset it; there is then nothing to report.
    if (!done || !alive) {
        return;
    }
    if (!done->load() && (!holders || holders.use_count() <= 1)) {
        alive->store(false);
    }
}
