// The waiter data of each thread.

#include "libn/CMultiEvent.h"

#include "platform/threadBlock.h"

namespace velt {

namespace {

std::shared_ptr<void> makeWaiter() {
    return std::make_shared<CMultiEvent::SWaiterData>();
}

const bool carried = [] {
    platform::carryForEachThread(makeWaiter);
    return true;
}();

} // namespace

std::shared_ptr<CMultiEvent::SWaiterData> CMultiEvent::waiterOfThread() {
    return std::static_pointer_cast<SWaiterData>(platform::carriedByThread());
}

} // namespace velt
