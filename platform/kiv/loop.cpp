#include "kiv/loop.h"

#include "kiv/process.h"

#include <exception>

namespace kiv {

Dispatch::Dispatch()
{
    ThreadMailbox* own = threadMailbox();
    if (own != nullptr && ++own->dispatches == 1 && own->queue) {
        own->queue->beginDispatch();
    }
}

Dispatch::~Dispatch()
{
    ThreadMailbox* own = threadMailbox();
    if (own == nullptr || own->dispatches == 0 || --own->dispatches != 0) {
        return;
    }
    if (own->queue) {
        own->queue->endDispatch();
    }
    currentCause = 0;
    try {
        flushCollected();
    } catch (const std::exception&) {
        return; // out of memory: the I/O thread sends it
    }
}

bool hasQueued(int descriptor)
{
    const ThreadMailbox* own = threadMailbox();
    return own != nullptr && own->queue && own->queue->hasQueued() && own->queue->isDescriptor(descriptor);
}

} // namespace kiv
