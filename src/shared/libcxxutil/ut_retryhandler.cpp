#include "ut_retryhandler.h"

#include "plat_time.h"

#include <algorithm>

namespace {
int32_t g_deadlineTick = -1;
} // namespace

RetryCondition::~RetryCondition() = default;

RetryHandler::RetryHandler() = default;

RetryHandler::RetryHandler(int32_t timeout) {
    if (timeout == -1)
        timeoutMs = kDefaultTimeoutMs;
    else if (timeout > kExactBase)
        timeoutMs = timeout - kExactBase;
    else if (timeout >= 1)
        timeoutMs = static_cast<int32_t>(
            std::min<int64_t>(int64_t{timeout} * kDefaultTimeoutMs, INT32_MAX));
}

RetryHandler::~RetryHandler() = default;

void RetryHandler::begin() {
    if (timeoutMs != -1)
        startTick = plat_tick_count();
}

bool RetryHandler::canContinue() {
    for (RetryCondition* condition : conditions)
        if (!condition->stillValid())
            return false;
    if (g_deadlineTick != -1 && plat_tick_diff(plat_tick_count(), g_deadlineTick) >= 0)
        return false;
    if (timeoutMs == -1)
        return true;
    return plat_tick_diff(plat_tick_count(), startTick) < timeoutMs;
}

void RetryHandler::end() {}

void RetryHandler::addCondition(RetryCondition* condition) {
    conditions.push_back(condition);
}

bool RetryHandler::removeCondition(RetryCondition* condition) {
    auto it = std::find(conditions.begin(), conditions.end(), condition);
    if (it == conditions.end())
        return false;
    conditions.erase(it);
    return true;
}

void RetryHandler::setDeadlineTick(int32_t tick) {
    g_deadlineTick = tick;
}
int32_t RetryHandler::getDeadlineTick() {
    return g_deadlineTick;
}
