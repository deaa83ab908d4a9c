// Children whose end nobody waits for. A job that stops its cvs child kills the child's process
// group and hands the handle here; the event loop then reaps it, once it has gone, without ever
// blocking. On Windows closing the handle of a terminated process is all it takes; on Linux a
// child that is not reaped stays a zombie, and this is what closing the handle means here.
#pragma once

struct PlatProcess;

// Takes over `process` (a child that has been killed or has ended): reaps it at once if it has
// ended, else on a later turn of the event loop (an idle job of the IdleNotifier that lasts while
// children are left), and closes the handle. Never waits; never re-enters the event loop.
void reapChildLater(PlatProcess* process);
