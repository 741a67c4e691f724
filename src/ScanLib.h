// SPDX-License-Identifier: LGPL-2.1-or-later
// The scan engine: one object per open SANE handle.
#pragma once

#include "CLogger.h"
#include "CancelToken.h"

#include <atomic>
#include <memory>

class CResponse;
class CSources;
class ConfigReader;
class DataBuffer;
class DeCompHandler;
class ICommand;
class ICommunication;
class ImageData;
class InterleaveHandler;
class RawDataHandler;
class SaneConfReader;

// Every job operation returns a SANE_Status number.
//
// One operation runs on a handle at a time, on its caller's thread. The only call that
// may come in between, from a signal handler or another thread, is Interrupt().
class ScanLib : public CLogger {
public:
    ScanLib();
    ScanLib(const ScanLib&) = delete;
    ScanLib& operator=(const ScanLib&) = delete;
    virtual ~ScanLib();

    // Writes the path of the backend configuration file, which follows from the name of
    // the file that this library was loaded from; empty when that is not a SANE backend.
    static void GetBackendName(char* out, int size);
    // The path for one line of a stack trace's symbols. false: no backend's file is in it.
    static bool ConfigPathFromSymbol(const char* symbol, char* out, int size);

    // The reachable scanners as "<vendor>/<model>/<device name>". *list: malloc'd array of
    // malloc'd strings, both freed by the caller. 0, 1: none, 17: no configuration file.
    // which: as for Device.
    static int GetScanners(char*** list, int* count, int which);
    static int GetScanners(char*** list, int* count);

    // Opens the scanner of that name. 0, 1: not configured, 3: busy or not usable,
    // 9: does not wake up.
    int Open(const char* name);
    // These take ownership and delete the object that they replace.
    void SetIO(ICommunication* comm);
    void SetComm(ICommand* cmd);

    // The option store by key. The setters return true; a text belongs to the store.
    int GetIntValue(const char* key);
    bool SetIntValue(const char* key, int value);
    double GetDoubleValue(const char* key);
    bool SetDoubleValue(const char* key, double value);
    const char* GetStringValue(const char* key);
    bool SetStringValue(const char* key, const char* value);

    // Asks the device what it can do and records it in the store.
    void LoadScanDeviceProperties();

    // ---- one scan job ----

    // Starts a frame.
    int Start();
    // Checks and completes the settings; part of Start.
    int CheckScanSettings();
    // Delivers up to max_length finished bytes.
    int AcquireImage(unsigned char* data, int max_length, int* length);
    int AcquireImage(unsigned char* data, int* length);
    // Sends the cancel command when a job runs. 0: sent, 1: no job, or not sent.
    int Cancel();
    // Cancels, drains what the device still sends, and closes it.
    int CancelAndFlush();
    int Unlock();
    // The SANE status for the status byte of a reply.
    int MapToSLSTATUS(int deviceStatus, int command);

    // ---- operations and cancel ----

    // What an operation is busy with: the option store for a moment, a scan job, or the end of one.
    enum class Occupation { none, store, job, cancel };

    // Held while an operation runs on the handle; isOwner() is false when there was one
    // already. A job waits for the store; nothing else waits. A cancel that arrives too late
    // for the operation to see it is carried out when it ends.
    class Operation {
    public:
        explicit Operation(ScanLib& engine, Occupation what = Occupation::job)
            : engine_(engine), isOwner_(engine.enter(what))
        {
        }
        Operation(const Operation&) = delete;
        Operation& operator=(const Operation&) = delete;
        ~Operation()
        {
            if (isOwner_) {
                engine_.leave();
            }
        }
        bool isOwner() const { return isOwner_; }

    private:
        ScanLib& engine_;
        bool isOwner_;
    };

    // Asks the running operation to cancel; allocates, logs and locks nothing.
    void Interrupt();
    // Waits until no operation runs, interrupting the one that does; none starts after
    // that. For the end of the handle.
    void InterruptAndWait();

protected:
    std::unique_ptr<ConfigReader> pCfgReader;
    std::unique_ptr<DataBuffer> Buffer;
    std::unique_ptr<DeCompHandler> MyDecompressor;
    std::unique_ptr<ICommand> pCmd;
    std::unique_ptr<ICommunication> pComm;
    std::unique_ptr<ImageData> Image;
    std::unique_ptr<RawDataHandler> ImageHandler;
    std::unique_ptr<InterleaveHandler> Interleaver;
    std::unique_ptr<SaneConfReader> pSaneConfReader;
    int AcquireImageStatus = 0;
    int ScanInProgress = 0;
    int linesRead = 0;

private:
    bool enter(Occupation what);
    void leave();

    int loadModel();
    int setUpPipeline();
    void recordFlatbed(const CSources& source);
    void recordFeeder(const CSources& source);

    bool isReady() const;
    int prepareJob();
    int startJob();
    int lock();
    int startFrame();
    static bool mayBeObeyed(int status, int command, const CResponse& response);
    int beginFrame(int status);
    int jobStatus(int result, int command, const CResponse& response, const char* step);
    bool checkFeeder(int* adf, int* ret);
    int refuse(const char* reason);

    // The caller's buffer of one read.
    struct Delivery {
        Delivery(unsigned char* to, int size) : data(to), room(size) {}

        unsigned char* data;
        int room;
        int length = 0;  // bytes written
    };

    int bytesWanted(int max_length, bool isTracing) const;
    void deliver(Delivery* out);
    int passOn(Delivery* out);
    int transfer(int need, Delivery* out);
    int endOfData() const;
    void checkScannedSize(int got) const;
    void decompressAll(bool isTracing);
    int finishStages();
    int endTransfer(int status);
    int flush();
    int abandon(int status);
    int cancelRunning();
    void cancelTooLate();

    bool isReplyLost = false;  // that about the properties, for want of memory
    bool isStarted = false;    // there is a frame to read, or was one
    bool isDataOver = false;   // of the frame; what is held may still have to go out
    std::atomic<Occupation> occupation{Occupation::none};
    CancelToken cancelToken;
};
