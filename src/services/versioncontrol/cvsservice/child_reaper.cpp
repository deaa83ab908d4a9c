#include "child_reaper.h"

#include "plat_process.h"
#include "ut_idle.h"

#include <vector>

namespace {

// The handles still to be reaped, looked at once per turn while there are any.
class ChildReaper : public Idler {
public:
    void add(PlatProcess* process) {
        if (reaped(process))
            return;
        children.push_back(process);
        if (children.size() == 1)
            if (IdleNotifier* notifier = IdleNotifier::get())
                notifier->addIdler(this);
    }

    void idle(IdleNotifier* notifier) override {
        std::erase_if(children, [](PlatProcess* p) { return reaped(p); });
        if (children.empty())
            notifier->removeIdler(this);
    }
    bool hasUrgentWork() override { return false; }

private:
    static bool reaped(PlatProcess* process) {
        if (plat_wait_process(process, 0) != PlatWait::exited)
            return false;
        plat_close_process(process);
        return true;
    }

    std::vector<PlatProcess*> children;
};

} // namespace

void reapChildLater(PlatProcess* process) {
    // One per process, made at first use and never destroyed: children left at exit are the
    // system's to reap.
    static ChildReaper* reaper = new ChildReaper;
    if (process)
        reaper->add(process);
}
