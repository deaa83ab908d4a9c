#include "stp_socketlistener.h"

#include "stp_transport.h"

STPSocketListener::STPSocketListener(STPTransport* t) : transport(t) {
    transport->ref();
    if (IdleNotifier* notifier = IdleNotifier::get())
        notifier->addListener(this);
}

STPSocketListener::~STPSocketListener() {
    if (IdleNotifier* notifier = IdleNotifier::get())
        notifier->removeListener(this);
    transport->unref();
}

bool STPSocketListener::isActive() {
    return !transport->isDisconnected() && !transport->isInProcess();
}

int STPSocketListener::getFD() {
    return transport->getFD();
}
bool STPSocketListener::wantsRead() {
    return transport->wantsRead();
}
bool STPSocketListener::wantsWrite() {
    return transport->hasPendingWrite();
}
bool STPSocketListener::hasBufferedWork() {
    return transport->hasDispatchableWork();
}
void STPSocketListener::onRead() {
    transport->handleRead();
}
void STPSocketListener::onWrite() {
    transport->handleWrite();
}
void STPSocketListener::onBufferedWork() {
    transport->pumpMessages();
}
