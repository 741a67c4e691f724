// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ScanLib.h"

#include "CProps.h"
#include "CResponse.h"
#include "DataBuffer.h"
#include "DeCompHandler.h"
#include "Device.h"
#include "FlatFileReader.h"
#include "ICommand.h"
#include "ICommunication.h"
#include "ImageData.h"
#include "InterleaveHandler.h"
#include "RawDataHandler.h"
#include "SaneConfReader.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <limits>
#include <new>
#include <optional>
#include <string>

#include <execinfo.h>
#include <fcntl.h>
#include <sane/sane.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kPathSize = 128;
constexpr int kFrames = 10;
constexpr const char* kLibraryPrefix = "libsane-";
constexpr const char* kFallbackPath = "/etc/sane.d/Quillon_1_0_0.conf";
constexpr int kNoConfiguration = 17;

constexpr int kScannerFlatbed = 1;
constexpr int kScannerFlatbedAndFeeder = 4;
constexpr int kScannerFeeder = 5;
constexpr int kFeederSource = 2;

constexpr int kScratchSize = 32768;
constexpr std::chrono::seconds kFlushLimit{10};
constexpr std::chrono::seconds kUnlockLimit{5};

// Feeder status of the device.
constexpr int kFeederAbsent = 0;
constexpr int kFeederEmpty = 1;
constexpr int kFeederLoaded = 2;

// Millimetres.
constexpr double kTolerance = 0.005;
constexpr double kSmallestExtent = 25.4;
constexpr double kFullWidth = 216.0;
constexpr double kNarrowedWidth = 215.0;
constexpr int kLastNarrowDpi = 299;

constexpr const char* kEditsSwitch = "SCAN_DEVICE_WITH_EDITS";
constexpr const char* kEditsMarker = "/tmp/scan_problem.dump";

// Bytes of the frame are gone; unlike any SANE status.
constexpr int kBytesLost = -1;

// Nothing but memory can be missing for the bytes of a command.
bool isNotSent(int result)
{
    return result == TRANSPORT_BAD_COMMAND || result == TRANSPORT_NO_COMMAND;
}

// touch, but never through a symbolic link that somebody left in /tmp.
void touchMarker()
{
    const int fd = open(kEditsMarker, O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK,
                        S_IRUSR | S_IWUSR);
    if (fd >= 0) {
        futimens(fd, nullptr);
        close(fd);
    }
}

}  // namespace

ScanLib::ScanLib() = default;

ScanLib::~ScanLib()
{
    pCfgReader.reset();
    Buffer.reset();
    MyDecompressor.reset();
    pCmd.reset();
    pComm.reset();
    Image.reset();
    ImageHandler.reset();
    Interleaver.reset();
    pSaneConfReader.reset();
}

bool ScanLib::ConfigPathFromSymbol(const char* symbol, char* out, int size)
{
    if (size < 1 || strcasestr(symbol, kLibraryPrefix) == nullptr) {
        return false;
    }
    std::string pieces = symbol;
    char* rest = nullptr;
    const char* piece = strtok_r(pieces.data(), "/", &rest);
    while (piece != nullptr && strcasestr(piece, kLibraryPrefix) == nullptr) {
        piece = strtok_r(nullptr, "/", &rest);
    }
    if (piece == nullptr) {
        return false;
    }
    std::string name = strchr(piece, '-') + 1;
    name.resize(std::min(name.size(), name.find('.')));
    snprintf(out, static_cast<size_t>(size), "%s%s%s", "/etc/sane.d/", name.c_str(), ".conf");
    return true;
}

void ScanLib::GetBackendName(char* out, int size)
{
    void* frames[kFrames];
    const int count = backtrace(frames, kFrames);
    const std::unique_ptr<char*, decltype(&free)> symbols(backtrace_symbols(frames, count), free);
    for (int i = 0; symbols && i < count; ++i) {
        if (ConfigPathFromSymbol(symbols.get()[i], out, size)) {
            return;
        }
        // As many bytes as there are frames are cleared, whatever the size of out.
        memset(out, 0, static_cast<size_t>(std::clamp(count, 0, std::max(size, 0))));
    }
}

int ScanLib::GetScanners(char*** list, int* count)
{
    return GetScanners(list, count, Device::kBoth);
}

int ScanLib::GetScanners(char*** list, int* count, int which)
{
    const CLogger log;
    SL_START_TO(log);
    char path[kPathSize] = "";
    GetBackendName(path, sizeof path);
    SL_TRACE_TO(log, "backend name is %s", path);
    const std::unique_ptr<SaneConfReader> reader(new (std::nothrow) SaneConfReader);
    if (!reader) {
        SL_TRACE_TO(log, "Unable to create SANE configuration reader");
        SL_RETURN_TO(log, 1);
    }
    if (reader->LoadConf(path[0] != '\0' ? path : kFallbackPath) == 0) {
        SL_RETURN_TO(log, kNoConfiguration);
    }
    SL_RETURN_TO(log, Device::getScanners(list, count, reader.get(), which));
}

int ScanLib::Open(const char* name)
{
    SL_START();
    char path[kPathSize] = "";
    GetBackendName(path, sizeof path);
    pSaneConfReader.reset(new (std::nothrow) SaneConfReader);
    if (!pSaneConfReader || pSaneConfReader->LoadConf(path) == 0) {
        SL_TRACE("[ERROR] Unsupported backend");
        SL_RETURN(SANE_STATUS_UNSUPPORTED);
    }
    SL_TRACE("Backend filename = %s", path);
    AcquireImageStatus = 0;
    ScanInProgress = 0;

    SetIO(Device::CreateInstance(name, pSaneConfReader.get()));
    if (!pComm) {
        SL_TRACE("[ERROR] creating of communication object failed. SL_STATUS_DEVICE_BUSY");
        SL_RETURN(SANE_STATUS_DEVICE_BUSY);
    }
    if (name != nullptr && pComm->openDevice() == TRANSPORT_OPEN_FAILED) {
        SL_TRACE("[ERROR] SL_STATUS_DEVICE BUSY now");
        SL_RETURN(SANE_STATUS_DEVICE_BUSY);
    }
    if (const int status = loadModel(); status != SANE_STATUS_GOOD) {
        SL_RETURN(status);
    }
    SL_RETURN(setUpPipeline());
}

// Loads the feature file for the device and wakes it.
int ScanLib::loadModel()
{
    const int vid = pComm->getVid();
    const int pid = pComm->getPid();
    SL_TRACE("vid is %X, pid is %X", static_cast<unsigned>(vid), static_cast<unsigned>(pid));
    pCfgReader.reset(new (std::nothrow) FlatFileReader);
    if (!pCfgReader || pCfgReader->LoadConfig(pSaneConfReader->GetFeatureFile(vid, pid)) == 0) {
        SL_TRACE("[ERROR] Unsupported VID PID");
        return SANE_STATUS_UNSUPPORTED;
    }
    Image = std::make_unique<ImageData>();
    Buffer = std::make_unique<DataBuffer>();
    SetComm(ICommand::createCmdInstance(GetIntValue("COMMANDVERSION")));
    if (!pCmd) {
        return SANE_STATUS_NO_MEM;
    }
    pCmd->setConfigReader(pCfgReader.get());
    pCmd->setNpa(GetIntValue("ENABLE_NPA"));
    pComm->setCommand(pCmd.get());

    CResponse response;
    if (GetIntValue("COMMANDVERSION") == 402 &&
        pComm->writeCommand(COMMAND_WAKE, &response) != COMMAND_WAKE) {
        SL_TRACE("[ERROR] unable to wake scanner");
        return SANE_STATUS_IO_ERROR;
    }
    return SANE_STATUS_GOOD;
}

int ScanLib::setUpPipeline()
{
    SL_TRACE("loading device properties");
    LoadScanDeviceProperties();
    if (isReplyLost) {
        SL_TRACE("[ERROR] no memory for the device properties");
        return SANE_STATUS_NO_MEM;
    }
    MyDecompressor = std::make_unique<DeCompHandler>();
    Interleaver = std::make_unique<InterleaveHandler>();
    ImageHandler = std::make_unique<RawDataHandler>();
    ImageHandler->SetUp(pCfgReader.get());
    if (GetIntValue("RESOLUTIONS") < 2) {
        SL_TRACE("[ERROR] No resolutions found");
        return SANE_STATUS_DEVICE_BUSY;
    }
    return SANE_STATUS_GOOD;
}

void ScanLib::SetIO(ICommunication* comm)
{
    pComm.reset(comm);
    if (pComm) {
        pComm->watchCancel(&cancelToken);
    }
}

void ScanLib::SetComm(ICommand* cmd)
{
    pCmd.reset(cmd);
}

int ScanLib::GetIntValue(const char* key)
{
    SL_TRACE("key: %s", key);
    return pCfgReader ? pCfgReader->GetIntOption(key) : 0;
}

bool ScanLib::SetIntValue(const char* key, int value)
{
    SL_TRACE("key: %s :: %d", key, value);
    return pCfgReader && pCfgReader->SetIntOption(key, value) != 0;
}

double ScanLib::GetDoubleValue(const char* key)
{
    SL_TRACE("key: %s", key);
    return pCfgReader ? pCfgReader->GetDoubleOption(key) : 0.0;
}

bool ScanLib::SetDoubleValue(const char* key, double value)
{
    SL_TRACE("key: %s", key);
    return pCfgReader && pCfgReader->SetDoubleOption(key, value) != 0;
}

const char* ScanLib::GetStringValue(const char* key)
{
    SL_TRACE("key: %s", key);
    return pCfgReader ? pCfgReader->GetStringOption(key) : nullptr;
}

bool ScanLib::SetStringValue(const char* key, const char* value)
{
    SL_TRACE("key: %s", key);
    return pCfgReader && pCfgReader->SetStringOption(key, value) != 0;
}

void ScanLib::LoadScanDeviceProperties()
{
    SL_START();
    CResponse response;
    if (pComm) {
        isReplyLost = pComm->writeCommand(COMMAND_PROPERTIES, &response) == TRANSPORT_NO_MEMORY;
    }
    const CProps* properties = response.getProperties();
    if (response.getReply() != COMMAND_PROPERTIES || properties == nullptr) {
        SL_END();
        return;
    }
    SetIntValue("COMPRESSIONTECH", properties->getCompression());
    SL_TRACE("%s Compression Technology = %d", __func__, properties->getCompression());

    for (int i = 0; i < properties->getNumOfSources(); ++i) {
        const CSources* source = properties->getSource(i);
        if (source == nullptr) {
            break;
        }
        SetIntValue("SCANBARID", source->getBarId());
        SL_TRACE("%s Scan Bar ID = %d", __func__, source->getBarId());
        if (source->getType() == SOURCE_FLATBED) {
            recordFlatbed(*source);
        } else if (source->getType() == SOURCE_FEEDER) {
            // Sources behind the feeder are not looked at.
            recordFeeder(*source);
            break;
        }
    }
    SL_END();
}

void ScanLib::recordFlatbed(const CSources& source)
{
    static constexpr const char* kFunction = "LoadScanDeviceProperties";
    SetIntValue("SCANNERTYPE", kScannerFlatbed);
    SL_TRACE("%s Scanner Type = %d", kFunction, kScannerFlatbed);

    int n = source.getNumOfRes();
    int k = 1;
    // Each unequal resolution takes the last one out of consideration, too.
    for (int j = 0; j < n; ++j) {
        const CScanRes* resolution = source.getScanRes(j);
        if (resolution == nullptr || resolution->isEqual() != 1) {
            --n;
            continue;
        }
        int dpi = 0;
        resolution->getHorRes(&dpi);
        char szRes[32];
        snprintf(szRes, sizeof szRes, "%s%d", "RESOLUTIONS_", k);
        SetIntValue(szRes, dpi);
        SL_TRACE("%s szRes = %s", kFunction, szRes);
        ++k;
    }
    SetIntValue("RESOLUTIONS", k - 1);
    SL_TRACE("%s Number of Resolutions = %d", kFunction, k - 1);
}

void ScanLib::recordFeeder(const CSources& source)
{
    static constexpr const char* kFunction = "LoadScanDeviceProperties";
    const bool hasFlatbed = GetIntValue("SCANNERTYPE") != 0;
    SetIntValue("SCANNERTYPE", hasFlatbed ? kScannerFlatbedAndFeeder : kScannerFeeder);
    SetIntValue("SCAN_SOURCE_ADF", kFeederSource);

    int limit = 0;
    for (int j = 0; j < source.getNumOfRes(); ++j) {
        const CScanRes* resolution = source.getScanRes(j);
        int dpi = 0;
        if (resolution != nullptr && resolution->isEqual() == 1) {
            resolution->getHorRes(&dpi);
        }
        limit = std::max(limit, dpi);
    }
    SetIntValue("ADFDPILIMIT", limit);
    SL_TRACE("%s ADF DPI Limit = %d", kFunction, limit);
}

// ---- start ------------------------------------------------------------------------

int ScanLib::MapToSLSTATUS(int deviceStatus, int command)
{
    SL_TRACE("command: %d", command);
    int code = SANE_STATUS_GOOD;
    switch (deviceStatus) {
    case 129:
        code = SANE_STATUS_INVAL;
        break;
    case 130:
    case 131:
        code = SANE_STATUS_DEVICE_BUSY;
        break;
    case 132:
    case 133:
    case 134:
        code = SANE_STATUS_IO_ERROR;
        break;
    case 136:
        if (command == COMMAND_START) {
            code = SANE_STATUS_INVAL;
        } else if (command == COMMAND_LOCK) {
            code = SANE_STATUS_DEVICE_BUSY;
        }
        break;
    case 137:
        code = SANE_STATUS_NO_MEM;
        break;
    default:
        // Only the statuses above stop a job.
        break;
    }
    SL_TRACE("::::::::::::::: METHOD END ::::::::::::::: code = %d", code);
    return code;
}

int ScanLib::Start()
{
    SL_START();
    if (!isReady()) {
        SL_RETURN(SANE_STATUS_IO_ERROR);
    }
    isStarted = ScanInProgress == 1;
    int status = startJob();
    if (cancelToken.isRequested()) {
        status = cancelRunning();
    }
    SL_RETURN(status);
}

// The SANE status of lock or start, from the result of writing it and from the reply.
int ScanLib::jobStatus(int result, int command, const CResponse& response, const char* step)
{
    if (result != command) {
        SL_TRACE("WriteCmd %s failed ret = %d", step, result);
        return isNotSent(result) || result == TRANSPORT_NO_MEMORY ? SANE_STATUS_NO_MEM
                                                                  : SANE_STATUS_IO_ERROR;
    }
    const int status = MapToSLSTATUS(response.getStatus(), command);
    if (status != SANE_STATUS_GOOD) {
        SL_TRACE("%s failed ret = %d", step, status);
    }
    return status;
}

// A cancel ends the wait for an answer; a command without one may have been obeyed.
bool ScanLib::mayBeObeyed(int status, int command, const CResponse& response)
{
    return status == SANE_STATUS_GOOD || response.getReply() != command;
}

// Wakes the device and checks the settings. Each may wait for the device, so a cancel is looked
// for before each.
int ScanLib::prepareJob()
{
    CResponse response;
    if (cancelToken.isRequested()) {
        return SANE_STATUS_CANCELLED;
    }
    if (GetIntValue("COMMANDVERSION") == 402 &&
        pComm->writeCommand(COMMAND_WAKE, &response) != COMMAND_WAKE) {
        SL_TRACE("[ERROR] unable to wake scanner");
        return SANE_STATUS_IO_ERROR;
    }
    if (cancelToken.isRequested()) {
        return SANE_STATUS_CANCELLED;
    }
    const int status = CheckScanSettings();
    if (status != SANE_STATUS_GOOD) {
        SL_TRACE("CheckScanSettings ret = %d", status);
    }
    return status;
}

int ScanLib::startJob()
{
    if (pComm->openDevice() == TRANSPORT_OPEN_FAILED) {
        SL_TRACE("[ERROR] SL_STATUS_DEVICE BUSY now");
        return SANE_STATUS_DEVICE_BUSY;
    }
    int status = prepareJob();
    if (status != SANE_STATUS_GOOD) {
        return status;
    }
    if (cancelToken.isRequested()) {
        return SANE_STATUS_CANCELLED;
    }
    status = lock();
    return status == SANE_STATUS_GOOD ? startFrame() : status;
}

int ScanLib::lock()
{
    CResponse response;
    const int result = pComm->writeCommand(COMMAND_LOCK, &response);
    const int status = jobStatus(result, COMMAND_LOCK, response, "Lock");
    if (cancelToken.isRequested()) {
        if (mayBeObeyed(status, COMMAND_LOCK, response)) {
            Unlock();
        }
        return SANE_STATUS_CANCELLED;
    }
    if (result == TRANSPORT_NO_MEMORY) {
        Unlock();
    }
    return status;
}

int ScanLib::startFrame()
{
    CResponse response;
    const int result = pComm->writeCommand(COMMAND_START, &response);
    const int status = jobStatus(result, COMMAND_START, response, "Start");
    const bool isLate = cancelToken.isRequested() && mayBeObeyed(status, COMMAND_START, response);
    if (status == SANE_STATUS_GOOD || isLate || result == TRANSPORT_NO_MEMORY) {
        return beginFrame(status);
    }
    if (isNotSent(result)) {
        Unlock();
    }
    return status;
}

// status: that of the start, GOOD unless it was cancelled or its reply is lost. The device sends.
int ScanLib::beginFrame(int status)
{
    AcquireImageStatus = SANE_STATUS_GOOD;
    ScanInProgress = 1;
    isStarted = true;
    isDataOver = false;
    Buffer->Reset();
    linesRead = 0;
    if (MyDecompressor->Initialize(pCfgReader.get()) == 0 || status == SANE_STATUS_NO_MEM) {
        return abandon(SANE_STATUS_NO_MEM);
    }
    SL_TRACE("All is well ret = %d", status);
    return status;
}

int ScanLib::refuse(const char* reason)
{
    SL_TRACE("%s", reason);
    SL_TRACE("SL_STATUS_UNSUPPORTED");
    return SANE_STATUS_UNSUPPORTED;
}

// Asks the feeder of a model that has one. *adf becomes 1 for a scan from it, *ret what
// the settings check is to return at its end. false: *ret is to be returned at once.
bool ScanLib::checkFeeder(int* adf, int* ret)
{
    SL_TRACE("Write Cmd ScanADFStatus");
    CResponse response;
    pComm->writeCommand(COMMAND_FEEDER_STATUS, &response);
    const int feeder = response.getADFStatus();
    const bool isPreviewRefused = GetIntValue("PREVIEW") != 0 && GetIntValue("ADFPREVIEW") == 0;
    if (GetIntValue("SCAN_SOURCE") != kFeederSource) {
        return true;
    }
    if (feeder == kFeederLoaded) {
        SL_TRACE("There is paper on the ADF");
        if (GetIntValue("CURRENTDPI") > GetIntValue("ADFDPILIMIT")) {
            *ret = refuse("[WARN] Cannot scan using the ADF with the current resolution.");
            return false;
        }
        if (isPreviewRefused) {
            *ret = refuse("[WARN] Cannot preview using the ADF.");
            return false;
        }
        *adf = 1;
    } else if (feeder == kFeederEmpty) {
        *ret = isPreviewRefused ? SANE_STATUS_UNSUPPORTED : SANE_STATUS_NO_DOCS;
        SL_TRACE("no paper found in the ADF");
        SL_TRACE("return from adf status  is %d", feeder);
    } else if (feeder == kFeederAbsent) {
        *ret = SANE_STATUS_UNSUPPORTED;
        SL_TRACE("[WARN] no adf found");
        SL_TRACE("return from adf status  is %d", feeder);
    }
    return true;
}

int ScanLib::CheckScanSettings()
{
    SL_START();
    const double width = GetDoubleValue("CURRENTBRX") - GetDoubleValue("CURRENTTLX");
    const double height = GetDoubleValue("CURRENTBRY") - GetDoubleValue("CURRENTTLY");
    SL_TRACE("scan source is %d", GetIntValue("SCAN_SOURCE"));
    if (width <= 0.0 || height <= 0.0) {
        SL_RETURN(refuse("[WARN] Negative width or height"));
    }
    if (width + kTolerance < kSmallestExtent || height + kTolerance < kSmallestExtent) {
        SL_RETURN(refuse("[WARN] Scan size is below the minimum"));
    }

    SL_TRACE("check if scanner support adf");
    int ret = SANE_STATUS_GOOD;
    int adf = 0;
    const int scannerType = GetIntValue("SCANNERTYPE");
    if ((scannerType == kScannerFlatbedAndFeeder || scannerType == kScannerFeeder) &&
        !checkFeeder(&adf, &ret)) {
        SL_RETURN(ret);
    }
    if (GetIntValue("CURRENTDPI") > kLastNarrowDpi && GetDoubleValue("CURRENTBRX") == kFullWidth) {
        SL_TRACE("Setting Brx to 215.");
        SetDoubleValue("CURRENTBRX", kNarrowedWidth);
    }
    Image->SetAttributes(pCfgReader.get(), adf);
    SL_TRACE("Exiting ScanLib::CheckScanSettings. ret = %d", ret);
    SL_RETURN(ret);
}

// ---- transfer ---------------------------------------------------------------------

bool ScanLib::isReady() const
{
    return pCfgReader && Buffer && MyDecompressor && pComm && Image && ImageHandler && Interleaver;
}

// How many bytes to ask of the transport: always whole lines.
int ScanLib::bytesWanted(int max_length, bool isTracing) const
{
    std::int64_t need = static_cast<std::int64_t>(max_length) - Image->GetProcessedDataSize();
    if (need <= 0) {
        return 0;
    }
    const std::int64_t stride = Image->GetStride();
    SL_TRACE_IF(isTracing, "image stride(bytes per scan line of the image data): %d",
                Image->GetStride());
    if (stride > need) {
        need = stride;
    } else if (stride > 0) {
        need = (need + stride - 1) / stride * stride;
    }
    need -= Image->GetRawDataSize();
    return static_cast<int>(std::clamp<std::int64_t>(need, 0, std::numeric_limits<int>::max()));
}

// A marker for diagnosis in the field: the device scanned another size than asked for.
void ScanLib::checkScannedSize(int got) const
{
    const bool isAsAsked = Image->GetScanWidth() == Image->GetActualScanWidth() &&
                           Image->GetScanHeight() == Image->GetActualScanHeight();
    if (got <= 0 || isAsAsked) {
        return;
    }
    SL_TRACE("Checking %s", kEditsSwitch);
    const char* edits = getenv(kEditsSwitch);
    if (edits != nullptr && strcmp(edits, "1") == 0) {
        touchMarker();
    }
}

// One chunk is decompressed a call: go on while there is progress.
void ScanLib::decompressAll(bool isTracing)
{
    int before = 0;
    int status = 0;
    do {
        MyDecompressor->DropHidden(Buffer.get());
        before = Buffer->GetRawDataSize();
        status = MyDecompressor->Decompress(Buffer.get(), Image.get(), isTracing);
    } while (status == 1 && Buffer->GetRawDataSize() > 0 && Buffer->GetRawDataSize() < before);
}

// What is still held at the end of the data goes out, parts of a line too. Returns how the
// frame ends behind it.
int ScanLib::finishStages()
{
    isDataOver = true;
    decompressAll(debugEnabled());
    const bool isDecompressed = MyDecompressor->Finish(Buffer.get());
    const bool isMerged = Interleaver->Finish(Buffer.get(), Image.get());
    ImageHandler->Finish(Image.get());
    // What is left of a cancelled job is never whole.
    const bool isWhole = (isDecompressed && isMerged) || cancelToken.isDraining();
    return isWhole ? SANE_STATUS_EOF : SANE_STATUS_IO_ERROR;
}

// A page that only broke off must not pass for a whole one.
int ScanLib::endOfData() const
{
    if (!pComm->isReadBroken()) {
        return SANE_STATUS_EOF;
    }
    return cancelToken.isDraining() ? SANE_STATUS_CANCELLED : SANE_STATUS_IO_ERROR;
}

void ScanLib::deliver(Delivery* out)
{
    out->length += Image->GetProcessedData(out->data + out->length, out->room - out->length);
}

// What needs no manipulation goes out at once, while the processor's cache still holds it. Returns
// how many raw bytes went.
int ScanLib::passOn(Delivery* out)
{
    if (!ImageHandler->isEmpty()) {
        return 0;
    }
    const int raw = Image->GetRawDataSize();
    Image->SetProcessedDataSize(raw);
    deliver(out);
    return raw;
}

// Reads and processes until need bytes are there; returns why it ended, kBytesLost without memory.
int ScanLib::transfer(int need, Delivery* out)
{
    int passed = 0;
    while (need >= 1) {
        if (cancelToken.shouldStop()) {
            return SANE_STATUS_CANCELLED;
        }
        int got = 0;
        const int rc = pComm->ReadImage(&got, Buffer.get(), Image.get());
        // Somebody may have turned the switch while the device was waited for.
        const bool isTracing = debugEnabled();
        SL_TRACE_IF(isTracing, "after ReadImage. return: %d", rc);
        checkScannedSize(got);
        switch (rc) {
        case RECORD_END_OF_DATA:
            return endOfData();
        case RECORD_NO_MEMORY:
            return SANE_STATUS_NO_MEM;
        case RECORD_STOPPED:
        case RECORD_CANCELLED:
            return SANE_STATUS_CANCELLED;
        case RECORD_PAPER_JAM:
            return SANE_STATUS_JAMMED;
        case RECORD_DEVICE_FAILURE:
            ScanInProgress = 0;
            return SANE_STATUS_IO_ERROR;
        case TRANSPORT_NO_MEMORY:
            if (!cancelToken.isDraining()) {
                return kBytesLost;
            }
            break;
        case RECORD_NO_DATA_YET:
            break;
        default:
            decompressAll(isTracing);
            Interleaver->DoInterleave(Buffer.get(), Image.get(), isTracing);
            need -= passed + Image->GetRawDataSize();
            passed += passOn(out);
            break;
        }
    }
    return SANE_STATUS_GOOD;
}

int ScanLib::AcquireImage(unsigned char* data, int max_length, int* length)
{
    bool isTracing = debugEnabled();
    SL_START_IF(isTracing);
    *length = 0;
    Delivery out(data, max_length);
    int status = AcquireImageStatus;
    // What a device does not send without a start is not waited for.
    if (!isReady() || (status == SANE_STATUS_GOOD && !isStarted)) {
        SL_RETURN_IF(isTracing, SANE_STATUS_IO_ERROR);
    }
    if (status == SANE_STATUS_GOOD) {
        status = transfer(bytesWanted(max_length, isTracing), &out);
        isTracing = debugEnabled();
        if (cancelToken.isRequested() && !cancelToken.isDraining()) {
            SL_RETURN_IF(isTracing, cancelRunning());
        }
        if (status == kBytesLost) {
            SL_RETURN_IF(isTracing, abandon(SANE_STATUS_NO_MEM));
        }
        ImageHandler->Perform(Image.get(), isTracing);
        status = endTransfer(status);
    } else if (!isDataOver || Image->GetProcessedDataSize() == 0) {
        SL_TRACE_IF(isTracing, "AcquireImageStatus = %d", status);
        SL_RETURN_IF(isTracing, status);
    }
    deliver(&out);
    *length = out.length;
    if (isDataOver && (*length > 0 || Image->GetProcessedDataSize() > 0)) {
        // The bytes go out now, the end of the frame after the last of them.
        status = SANE_STATUS_GOOD;
        SL_TRACE_IF(isTracing, "return status good");
    }
    SL_TRACE_IF(isTracing, "max_length = %d", max_length);
    SL_TRACE_IF(isTracing, "length = %d", *length);
    SL_TRACE_IF(isTracing, "retstatus = %d", status);
    SL_RETURN_IF(isTracing, status);
}

// A transfer that ended for good is not taken up again before the next start. After an
// I/O error the device may still be there, so the next read tries again.
int ScanLib::endTransfer(int status)
{
    if (status == SANE_STATUS_GOOD || status == SANE_STATUS_IO_ERROR) {
        return status;
    }
    AcquireImageStatus = status == SANE_STATUS_EOF ? finishStages() : status;
    Unlock();
    return AcquireImageStatus;
}

int ScanLib::AcquireImage(unsigned char* /*data*/, int* /*length*/)
{
    return SANE_STATUS_GOOD;
}

// ---- cancel and unlock --------------------------------------------------------------

int ScanLib::Cancel()
{
    SL_START();
    int ret = SANE_STATUS_UNSUPPORTED;
    if (ScanInProgress == 1 && pComm) {
        SL_TRACE("Scan in Progress");
        CResponse response;
        if (pComm->writeCommand(COMMAND_CANCEL, &response) == COMMAND_CANCEL) {
            SL_TRACE("Cancel successful");
            ret = SANE_STATUS_GOOD;
        }
    }
    SL_TRACE("Exiting ScanLib::Cancel. ret = %d", ret);
    SL_RETURN(ret);
}

int ScanLib::flush()
{
    SL_TRACE("Flushing data from the scanner.");
    const CancelToken::Draining draining(cancelToken, kFlushLimit);
    unsigned char scratch[kScratchSize];
    int status = SANE_STATUS_GOOD;
    while (status == SANE_STATUS_GOOD) {
        int length = 0;
        status = AcquireImage(scratch, kScratchSize, &length);
    }
    AcquireImageStatus = status;
    return status;
}

int ScanLib::CancelAndFlush()
{
    SL_START();
    const int ret = Cancel();
    int retstatus = SANE_STATUS_GOOD;
    if (ret == SANE_STATUS_GOOD) {
        retstatus = flush();
    }
    SL_TRACE("retstatus = %d", retstatus);
    if (pComm) {
        pComm->closeDevice();
    }
    SL_RETURN(ret);
}

int ScanLib::Unlock()
{
    SL_START();
    if (pComm) {
        // After a cancel the answer is still read, but not waited for without end.
        std::optional<CancelToken::Draining> limit;
        if (cancelToken.isRequested() || cancelToken.isDraining()) {
            limit.emplace(cancelToken, kUnlockLimit);
        }
        CResponse response;
        if (pComm->writeCommand(COMMAND_UNLOCK, &response) == COMMAND_UNLOCK) {
            SL_TRACE("Unlock Successful");
        }
    }
    ScanInProgress = 0;
    SL_RETURN(0);
}

// Gets the device out of a running job; later reads end with that status.
int ScanLib::abandon(int status)
{
    CancelAndFlush();
    isDataOver = false;
    AcquireImageStatus = status;
    return status;
}

// Carries out, on the stack of the running operation, a cancel that arrived meanwhile.
int ScanLib::cancelRunning()
{
    cancelToken.consume();
    return abandon(SANE_STATUS_CANCELLED);
}

// Carries out a cancel that the operation has not seen. Later reads must not take the end of
// what was flushed for that of the frame.
void ScanLib::cancelTooLate()
{
    if (ScanInProgress == 1) {
        cancelRunning();
    } else {
        cancelToken.consume();
        CancelAndFlush();
    }
}

void ScanLib::Interrupt()
{
    cancelToken.request();
    // The operation may have ended before it could see the request.
    if (enter(Occupation::cancel)) {
        leave();
    }
}

bool ScanLib::enter(Occupation what)
{
    constexpr timespec kPause = {0, 100'000};
    Occupation found = Occupation::none;
    while (!occupation.compare_exchange_strong(found, what)) {
        if (what != Occupation::job || found != Occupation::store) {
            return false;
        }
        nanosleep(&kPause, nullptr);
        found = Occupation::none;
    }
    return true;
}

void ScanLib::leave()
{
    do {
        if (cancelToken.isRequested()) {
            occupation = Occupation::cancel;
            try {
                cancelTooLate();
            } catch (const std::exception&) {
                SL_TRACE("[ERROR] cancel failed");
            }
        }
        occupation = Occupation::none;
    } while (cancelToken.isRequested() && enter(Occupation::cancel));
}

void ScanLib::InterruptAndWait()
{
    constexpr timespec kPause = {0, 10'000'000};
    while (!enter(Occupation::cancel)) {
        cancelToken.request();
        nanosleep(&kPause, nullptr);
    }
    cancelToken.consume();
}
