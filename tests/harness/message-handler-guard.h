// A message handler for the length of a scope.
#ifndef QUINTRAL_TESTS_HARNESS_MESSAGE_HANDLER_GUARD_H
#define QUINTRAL_TESTS_HARNESS_MESSAGE_HANDLER_GUARD_H

#include "support/error.h"

namespace quintral::tests {

// Installs a handler, and restores the previous one when destroyed.
class MessageHandlerGuard {
public:
    explicit MessageHandlerGuard(MessageHandler handler) : previous_(set_message_handler(handler))
    {
    }

    ~MessageHandlerGuard()
    {
        set_message_handler(previous_);
    }

    MessageHandlerGuard(const MessageHandlerGuard &) = delete;
    MessageHandlerGuard &operator=(const MessageHandlerGuard &) = delete;

private:
    MessageHandler previous_;
};

} // namespace quintral::tests

#endif
