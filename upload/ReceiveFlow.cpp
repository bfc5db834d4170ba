#include "ReceiveFlow.h"

#include "AppContext.h"
#include "RestoreStore.h"
#include "StoreError.h"

#include <exception>

ReceiveFlow::ReceiveFlow(AppContext& ctx, QObject* parent) : QObject(parent), m_ctx(ctx), m_session(ctx)
{
    connect(&m_session, &UploadSession::message, this, &ReceiveFlow::message);
    connect(&m_session, &UploadSession::crcQuestion, this, &ReceiveFlow::crcQuestion);
    connect(&m_session, &UploadSession::summaryDecoded, this, &ReceiveFlow::summaryDecoded);
    connect(&m_session, &UploadSession::progress, this, &ReceiveFlow::progress);
    connect(&m_session, &UploadSession::busyChanged, this, &ReceiveFlow::busyChanged);
    connect(&m_session, &UploadSession::closeRequested, this, &ReceiveFlow::closeRequested);
    connect(&m_session, &UploadSession::headerReceived, this, [this] { emit receiveEnabled(false); });
    connect(&m_session, &UploadSession::stopped, this, [this] {
        m_restorePending = false;
        emit receiveEnabled(true);
        emit stopped();
    });
    connect(&m_session, &UploadSession::finished, this, [this] {
        // Stored after the serial handler has returned: the restore step
        // may take a while and has its own messages.
        m_restorePending = true;
        QMetaObject::invokeMethod(this, &ReceiveFlow::restore, Qt::QueuedConnection);
    });
}

bool ReceiveFlow::Form_Load()
{
    emit receiveEnabled(true);
    return m_session.Form_Load();
}

void ReceiveFlow::Form_Unload()
{
    m_restorePending = false;
    m_session.closePort();
}

void ReceiveFlow::cmdSend_Click()
{
    m_restorePending = false;
    m_restored = false;
    m_session.cmdSend_Click();
}

void ReceiveFlow::answerCrcQuestion(bool ok)
{
    m_session.answerCrcQuestion(ok);
}

void ReceiveFlow::stop()
{
    m_restorePending = false;
    m_session.stop();
}

bool ReceiveFlow::isBusy() const
{
    return m_restorePending || m_session.isBusy();
}

void ReceiveFlow::restore()
{
    // Once per complete exchange, never for a receive that ended early or
    // was started afresh meanwhile.
    if (!m_restorePending || m_session.phase() != UploadSession::Phase::Done)
        return;
    m_restorePending = false;
    bool ok = false;
    try {
        ok = RestoreStore::RestoreData(m_ctx, m_session.summary());
    } catch (const StoreError& e) {
        emit message(SessionMessage{e.message(), SessionMessage::Icon::Critical});
    } catch (const std::exception& e) {
        emit message(SessionMessage{QString::fromLocal8Bit(e.what()), SessionMessage::Icon::Critical});
    }
    m_restored = ok;
    emit completed(ok);
}
