#pragma once

#include <QString>

class DownloadFile;
class SharedDatabase;

// The BankData rows of one agent: the accounts of the last download file,
// which the download protocol reads back and sends, and which the receive
// side looks collections up in.
class AccountStore
{
public:
    explicit AccountStore(SharedDatabase& db) : m_db(db) {}

    // Replaces every BankData row of the file's AgentID (whatever file it
    // came from) with the file's records, in file order, all in one
    // transaction: after a failure or a crash the agent's old rows are still
    // there. Every row gets SNo 1, the BranchID and AgentID of the last
    // record, and the FileName value of `downloadPath`. An AgentID or file
    // name holding an apostrophe is refused before anything is touched.
    // Returns false with a message to show on failure.
    bool Store_BankData(const DownloadFile& file, const QString& downloadPath, QString* error);

    // An empty hook kept from version 2.1: only raises its flag; nothing on
    // the send side reads it.
    void CreateFlatDLFile() { m_flatFileRequested = true; }
    bool flatFileRequested() const { return m_flatFileRequested; }

private:
    SharedDatabase& m_db;
    bool m_flatFileRequested = false;
};
