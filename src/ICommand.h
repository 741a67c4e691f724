// SPDX-License-Identifier: LGPL-2.1-or-later
// Command objects: a command number becomes the bytes of one protocol version.
#pragma once

#include "CLogger.h"
#include "ConfigReader.h"
#include "DataBuffer.h"

#include <memory>

// Command numbers.
enum CommandId {
    COMMAND_CANCEL = 0,
    COMMAND_FEEDER_STATUS = 1,
    COMMAND_PROPERTIES = 2,
    COMMAND_LOCK = 3,
    COMMAND_START = 4,
    COMMAND_UNLOCK = 5,
    COMMAND_WAKE = 6,
    COMMAND_IMAGE = 7,  // never sent: the header of image blocks
};

// Results: 0 success, 2 failure (no memory, no option store, no such command).
class ICommand : public CLogger {
public:
    ICommand() = default;
    ICommand(const ICommand&) = delete;
    ICommand& operator=(const ICommand&) = delete;
    virtual ~ICommand();

    // Version 401 or 402; every other number gives 326. The caller owns the object;
    // null without memory.
    static ICommand* createCmdInstance(int version);

    // The store is not owned and must outlive the command object.
    virtual int setConfigReader(ConfigReader* store);
    virtual void setCommandId(int id);
    // Positive: wrap commands in the NPA header and trailer.
    virtual void setNpa(int npa);
    virtual void setVersion(int version);
    virtual void setStripSize(int size);
    virtual void setStripMin(int min);
    // Wraps *len command bytes; *out is freed by the caller with delete[], *len
    // becomes its size.
    virtual int addNPA(unsigned char** out, const unsigned char* cmd, int* len);
    // Takes image-block headers off the raw part of data and marks image bytes
    // processed. 1: call again, there may be more.
    virtual int removeESC(DataBuffer* data);
    virtual int getNpa();
    virtual int getCommandId();

    // The device's codes and values for the current settings.
    virtual int getPixelPerLine();
    virtual int getLines();
    virtual int getScanOffsetX();
    virtual int getScanOffsetY();
    virtual int getCurrentDPI();
    virtual int getCompression();
    virtual int getCompressionLevel();
    virtual int getFilter();      // 4 preview, 3 normal
    virtual int getColorDepth();  // 3 colour, 2 grey
    virtual int getVersion();
    virtual int getSource();  // 1 flatbed, 4 feeder, 0 third source

    // The bytes of the current command. *out is freed by the caller with delete[].
    virtual int getCommand(unsigned char** out, int* len) = 0;
    // Fills the parameter block of a long command.
    virtual void appendData(unsigned char** cmd) = 0;

    // Makes id the current command and encodes it; a result of getCommand.
    int encode(int id, std::unique_ptr<unsigned char[]>* bytes, int* len);
    // The same as removeESC for a caller that has asked debugEnabled() itself.
    int removeBlockHeaders(DataBuffer* data, bool isTracing);
    // True for the commands that the device answers.
    static bool isAnswered(int id);

    // Image bytes still to come in the block that removeESC is in; 0 between blocks.
    int getPendingBlockSize() const { return iDataSize; }
    // The same before the next call of removeESC, where the block's header may still wait in held.
    int getPendingBlockSize(DataBuffer* held) const;

protected:
    ConfigReader* pConfigReader = nullptr;
    int iDataSize = 0;
    int iCmd = 0;
    int iNPA = 0;
    int iVer = 0;
    int iStrip = 9;     // size of the header in front of each image block
    int iStripMin = 1;  // by how much the header's length field exceeds the data

private:
    int blockSize(const unsigned char* header) const;
    int storeValue(const char* key);
};
