#pragma once

#include "terminal/UploadRecords.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <functional>

class Pty;

// The terminal in upload mode: answers each record request
// (01 FF 10 F0 'U' 00 03 HI LO 00) with the 137-byte reply for that record
// and counts the "OVER" end frame. Faults can be switched on to exercise the
// PC's retries.
class UploadTerminal : public QObject
{
    Q_OBJECT
public:
    struct Faults
    {
        int corruptRecord = -1; // the check byte of the reply to this record is wrong ...
        int corruptTimes = 1;   // ... this many times
        int corruptNext = 0;    // the next K replies, whatever they are, carry a wrong check byte
        int splitRecord = -1;   // the reply to this record goes out in pieces (-2: every reply)
        int pieces = 3;
        int pieceDelayMs = 40;  // between pieces; under the PC's one-second time-out
        int nackRecord = -1;    // the first request for this record is answered "NACK"
        int silentRecord = -1;  // the first request for this record is not answered
        bool mute = false;      // no request is ever answered
        int delayRecord = -1;   // the first reply to this record is held back ...
        int delayMs = 1300;     // ... this long (past the PC's one-second time-out)
        int misreadRecord = -1; // the first request for this record is read as a request for ...
        int misreadAs = -1;     // ... this one (a bit flipped on the line)
    };

    explicit UploadTerminal(Pty* pty, QObject* parent = nullptr);

    void setRecords(const UploadRecords& records) { m_records = records; }
    // Called on every request for the header, so that accounts downloaded
    // since the simulator started are answered; false with a reason leaves
    // the request unanswered.
    void setRecordProvider(std::function<bool(UploadRecords*, QString*)> provider) { m_provider = std::move(provider); }
    const UploadRecords& records() const { return m_records; }
    Faults& faults() { return m_faults; }

    // After the end frame the terminal leaves upload mode, as the real one
    // returns to its menu: record requests go unanswered until a request for
    // the header starts the next upload. With this set it keeps answering
    // every request, as older terminals did.
    void setStayInUpload(bool stay) { m_stayInUpload = stay; }
    bool inUploadMode() const { return m_inUploadMode; }

    // Reads the PC's bytes from the pty itself (a terminal only in upload mode).
    void attach();
    // Bytes from the PC: complete frames are answered, partial ones kept.
    void receive(const QByteArray& bytes);
    // One complete frame from the PC whose command byte is 'U'.
    void handleFrame(const QByteArray& frame);

    // A frame head 01 FF 10 F0 with the upload command byte.
    static bool isUploadFrame(const QByteArray& frame);
    // The length of the complete frame at the start of bytes, 0 while more
    // is needed, -1 when bytes do not start with a frame head or its length
    // bytes are neither a request's nor the end frame's.
    static int frameLength(const QByteArray& bytes);

    const QList<int>& requests() const { return m_requests; }
    int overCount() const { return m_overCount; }
    int repliesSent() const { return m_replies; }

signals:
    void requestReceived(int record);
    void
    replySent(int record,
              const QString& how); // "", "corrupted", "in pieces", "NACK", "silent", "held back", "not in upload mode"
    void overReceived(const QByteArray& frame);
    void note(const QString& text);

private:
    void send(const QByteArray& bytes, bool inPieces);

    Pty* m_pty;
    UploadRecords m_records;
    std::function<bool(UploadRecords*, QString*)> m_provider;
    Faults m_faults;
    QByteArray m_input;
    QList<int> m_requests;
    int m_overCount = 0;
    int m_replies = 0;
    int m_corrupted = 0;
    bool m_nackDone = false;
    bool m_silenceDone = false;
    bool m_delayDone = false;
    bool m_misreadDone = false;
    bool m_stayInUpload = false;
    bool m_inUploadMode = true;
};
