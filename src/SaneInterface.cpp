// SPDX-License-Identifier: LGPL-2.1-or-later
#include "SaneInterface.h"

#include "CLogger.h"
#include "Device.h"
#include "NameList.h"
#include "ScanLib.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>

#include <cxxabi.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr SANE_Int kVersionCode = SANE_VERSION_CODE(1, 0, 1);

constexpr int kColour = 3;
constexpr int kGrey = 1;
constexpr int kFeederSource = 2;
constexpr int kPreviewDpi = 75;

enum OptionNumber {
    kOptionNumOptions = 0,
    kOptionImageGroup = 1,
    kOptionResolution = 2,
    kOptionMode = 3,
    kOptionSource = 4,
    kOptionPreview = 5,
    kOptionSizeGroup = 6,
    kOptionTlX = 7,
    kOptionTlY = 8,
    kOptionBrX = 9,
    kOptionBrY = 10,
    kOptionMedia = 11,
};

constexpr SANE_Int kStringSize = 4096;
constexpr int kMaxResolutions = 1024;

// Of ScanLib::GetScanners.
constexpr int kNoScanners = 1;

const SANE_String_Const mode_list[] = {"24-bit Color", "8-bit Grayscale", nullptr};
const SANE_String_Const source_list[] = {"Flatbed", nullptr};
const SANE_String_Const source_list_ADF[] = {"Flatbed", "Automatic Document Feeder", nullptr};

constexpr int kMediaCount = 34;

const SANE_String_Const media_list[kMediaCount + 1] = {
    "Letter (8 1/2 x 11 in)",
    "Executive (7 1/4 x 10 1/2 in)",
    "Legal (8 1/2 x 14 in)",
    "Index Card (3 x 5 in)",
    "4 x 6 in",
    "4 x 8 in",
    "10 x 15 cm",
    "10 x 20 cm",
    "A4 (210 x 297 mm)",
    "B5 (182 x 257 mm)",
    "A5 (148 x 210 mm)",
    "A6 Card (105 x 148 mm)",
    "Hagaki (100 x 148 mm)",
    "L (89 x 127 mm)",
    "2L (127 x 178 mm)",
    "3.5 x 5 in",
    "5 x 7 in",
    "13 x 18 cm",
    "Envelope 6 3/4 (3 5/8 x 6 1/2 in)",
    "Envelope #9 (3 7/8 x 8 7/8 in)",
    "Envelope #10 (4 1/8 x 9 1/2 in)",
    "Envelope DL (110 x 220 mm)",
    "Envelope C5 (162 x 229 mm)",
    "Envelope C6 (114 x 162 mm)",
    "Envelope B5 (176 x 250 mm)",
    "Envelope 7 3/4 (3 7/8 x 7 1/2 in)",
    "A2 Baronial (111 x 146 mm)",
    "Chokei 3 (120 x 235 mm)",
    "Chokei 4 (90 x 205 mm)",
    "Chokei 40 (90 x 225 mm)",
    "Kakugata 3 (216 x 277 mm)",
    "Kakugata 4 (197 x 267 mm)",
    "Kakugata 5 (190 x 240 mm)",
    "Kakugata 6 (162 x 229 mm)",
    nullptr,
};

// Width and height of each media size in millimetres, rounded to a tenth.
constexpr double BRX_list[kMediaCount] = {
    215.9, 184.1, 215.9, 76.2,  101.6, 101.6, 100.0, 100.0, 210.0, 182.0, 148.0, 105.0,
    100.0, 89.0,  127.0, 88.9,  127.0, 130.0, 92.1,  98.4,  104.8, 110.0, 162.0, 114.0,
    176.0, 98.4,  111.0, 120.0, 90.0,  90.0,  216.0, 197.0, 190.0, 162.0,
};
constexpr double BRY_list[kMediaCount] = {
    279.4, 266.7, 355.6, 127.0, 152.4, 203.2, 150.0, 200.0, 297.0, 257.0, 210.0, 148.0,
    148.0, 127.0, 178.0, 127.0, 177.8, 180.0, 165.1, 225.4, 241.3, 220.0, 229.0, 162.0,
    250.0, 190.5, 146.0, 235.0, 205.0, 225.0, 277.0, 267.0, 240.0, 229.0,
};

// ---- state of the loaded library, shared by all handles ------------------------

SANE_Option_Descriptor m_opt[kOptionCount];
SANE_Range srWidth;
SANE_Range srHeight;
SANE_Word resolutionList[kMaxResolutions + 1];

int iNum = 0;
const SANE_Device** g_pDeviceListPtr = nullptr;

// The resolution that the front end chose. Preview and the parameter computation put
// another one into the option store for a while.
int iDpi = 0;
int __gTmpFile = -1;

// ---- helpers -------------------------------------------------------------------

// Keeps every exception inside the library; those that end a thread pass through.
template <typename Body>
SANE_Status guarded(Body body)
{
    try {
        return static_cast<SANE_Status>(body());
    } catch (const std::bad_alloc&) {
        return SANE_STATUS_NO_MEM;
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return SANE_STATUS_IO_ERROR;
    }
}

// What the C++ library keeps for a thread's exceptions is made for the first one, and ends the
// process when there is no memory for it then.
void prepareForExceptions()
{
    abi::__cxa_eh_globals* volatile made = abi::__cxa_get_globals();
    static_cast<void>(made);
}

// Null for the handle of a front end that goes on behind a failed open.
ScanLib* engineOf(SANE_Handle handle)
{
    return static_cast<ScanLib*>(handle);
}

SANE_Fixed toFixed(double value)
{
    const double scaled = std::isnan(value) ? 0.0 : value * 65536.0;
    constexpr double kMin = std::numeric_limits<SANE_Fixed>::min();
    constexpr double kMax = std::numeric_limits<SANE_Fixed>::max();
    return static_cast<SANE_Fixed>(std::clamp(scaled, kMin, kMax));
}

double fromFixed(SANE_Fixed value)
{
    return value / 65536.0;
}

const char* areaKey(SANE_Int option)
{
    switch (option) {
    case kOptionTlX:
        return "CURRENTTLX";
    case kOptionTlY:
        return "CURRENTTLY";
    case kOptionBrX:
        return "CURRENTBRX";
    default:
        return "CURRENTBRY";
    }
}

int storedResolution(ScanLib* engine, int number)
{
    return engine->GetIntValue(("RESOLUTIONS_" + std::to_string(number)).c_str());
}

// ---- option table ----------------------------------------------------------------

void describe(int number, const char* name, const char* title, const char* desc,
              SANE_Value_Type type, SANE_Unit unit)
{
    SANE_Option_Descriptor& option = m_opt[number];
    option.name = name;
    option.title = title;
    option.desc = desc;
    option.type = type;
    option.unit = unit;
    option.size = sizeof(SANE_Word);
    option.cap = SANE_CAP_SOFT_SELECT | SANE_CAP_SOFT_DETECT;
}

void describeGroup(int number, const char* title, const char* desc)
{
    describe(number, "", title, desc, SANE_TYPE_GROUP, SANE_UNIT_NONE);
    m_opt[number].size = 0;
    m_opt[number].cap = 0;
}

void describeList(int number, const char* name, const char* title, const char* desc,
                  const SANE_String_Const* list)
{
    describe(number, name, title, desc, SANE_TYPE_STRING, SANE_UNIT_NONE);
    m_opt[number].size = kStringSize;
    m_opt[number].constraint_type = SANE_CONSTRAINT_STRING_LIST;
    m_opt[number].constraint.string_list = list;
}

void describeCorner(int number, const char* name, const char* title, const char* desc,
                    const SANE_Range* range)
{
    describe(number, name, title, desc, SANE_TYPE_FIXED, SANE_UNIT_MM);
    m_opt[number].constraint_type = SANE_CONSTRAINT_RANGE;
    m_opt[number].constraint.range = range;
}

// In descending order of the keys: the reverse of the device's own order.
void listResolutions(ScanLib* engine)
{
    const int count = std::clamp(engine->GetIntValue("RESOLUTIONS"), 0, kMaxResolutions);
    resolutionList[0] = count;
    for (int i = 1; i <= count; ++i) {
        resolutionList[i] = storedResolution(engine, count - i + 1);
    }
}

// ---- option values -----------------------------------------------------------------

void copyString(void* value, const char* text)
{
    snprintf(static_cast<char*>(value), kStringSize, "%s", text);
}

const char* currentSource(ScanLib* engine)
{
    const SANE_String_Const* list = m_opt[kOptionSource].constraint.string_list;
    const int source = engine->GetIntValue("SCAN_SOURCE");
    if (list == nullptr || source == 3) {
        return "";
    }
    if (source == kFeederSource) {
        return list[1] != nullptr ? list[1] : "";
    }
    return list[0];
}

const char* currentMedia(ScanLib* engine)
{
    return media_list[std::clamp(engine->GetIntValue("MEDIA_INDEX"), 0, kMediaCount - 1)];
}

void getOption(ScanLib* engine, SANE_Int option, void* value)
{
    switch (option) {
    case kOptionNumOptions:
        *static_cast<SANE_Word*>(value) = kOptionCount;
        break;
    case kOptionResolution:
        *static_cast<SANE_Word*>(value) = engine->GetIntValue("CURRENTDPI");
        break;
    case kOptionMode:
        copyString(value, mode_list[engine->GetIntValue("COLORDEPTH") == kColour ? 0 : 1]);
        break;
    case kOptionSource:
        copyString(value, currentSource(engine));
        break;
    case kOptionPreview:
        *static_cast<SANE_Word*>(value) = engine->GetIntValue("PREVIEW");
        break;
    case kOptionMedia:
        copyString(value, currentMedia(engine));
        break;
    default:
        *static_cast<SANE_Word*>(value) = toFixed(engine->GetDoubleValue(areaKey(option)));
        break;
    }
}

void setMedia(ScanLib* engine, int index)
{
    engine->SetIntValue("MEDIA_INDEX", index);
    engine->SetDoubleValue("CURRENTTLY", 0.0);
    engine->SetDoubleValue("CURRENTTLX", 0.0);
    engine->SetDoubleValue("CURRENTBRX", BRX_list[index]);
    engine->SetDoubleValue("CURRENTBRY", BRY_list[index]);
}

void setPreview(ScanLib* engine, bool isPreview)
{
    // A second "true" in a row thereby leaves the preview resolution as the chosen one.
    iDpi = engine->GetIntValue("CURRENTDPI");
    if (isPreview) {
        engine->SetIntValue("CURRENTDPI", kPreviewDpi);
    }
    engine->SetIntValue("PREVIEW", isPreview ? 1 : 0);
}

// listIndex: the position of a string value in its list.
void storeOption(ScanLib* engine, SANE_Int option, const void* value, int listIndex, int* info)
{
    switch (option) {
    case kOptionNumOptions:
        break;
    case kOptionResolution:
        engine->SetIntValue("CURRENTDPI", *static_cast<const SANE_Word*>(value));
        iDpi = engine->GetIntValue("CURRENTDPI");
        break;
    case kOptionMode:
        engine->SetIntValue("COLORDEPTH", listIndex == 0 ? kColour : kGrey);
        break;
    case kOptionSource:
        engine->SetIntValue("SCAN_SOURCE", listIndex + 1);
        break;
    case kOptionPreview:
        setPreview(engine, *static_cast<const SANE_Word*>(value) != SANE_FALSE);
        break;
    case kOptionMedia:
        setMedia(engine, listIndex);
        *info |= SANE_INFO_RELOAD_OPTIONS;
        break;
    default:
        engine->SetDoubleValue(areaKey(option), fromFixed(*static_cast<const SANE_Word*>(value)));
        break;
    }
    *info |= SANE_INFO_RELOAD_PARAMS;
}

SANE_Status setOption(ScanLib* engine, SANE_Int option, void* value, int* info)
{
    const SANE_Option_Descriptor& descriptor = m_opt[option];
    int listIndex = 0;
    if (descriptor.constraint_type == SANE_CONSTRAINT_STRING_LIST) {
        const SANE_String_Const* list = descriptor.constraint.string_list;
        const SANE_String_Const* slot = search_string_list(list, static_cast<const char*>(value));
        if (slot == nullptr) {
            return SANE_STATUS_INVAL;
        }
        listIndex = static_cast<int>(slot - list);
    }
    const SANE_Status status = CheckValue(&descriptor, value, info);
    if (status == SANE_STATUS_GOOD) {
        storeOption(engine, option, value, listIndex, info);
    }
    return status;
}

SANE_Status setAutomatic(SANE_Int option)
{
    const SANE_Int cap = m_opt[option].cap;
    const bool isAllowed = SANE_OPTION_IS_SETTABLE(cap) && (cap & SANE_CAP_AUTOMATIC) != 0;
    return isAllowed ? SANE_STATUS_GOOD : SANE_STATUS_INVAL;
}

SANE_Status controlOption(ScanLib* engine, SANE_Int option, SANE_Action action, void* value,
                          SANE_Int* info)
{
    if (value == nullptr) {
        return SANE_STATUS_INVAL;
    }
    int unused = 0;
    int* flags = info != nullptr ? info : &unused;
    *flags = 0;
    if (option < 0 || option >= kOptionCount || option == kOptionImageGroup ||
        option == kOptionSizeGroup) {
        return SANE_STATUS_INVAL;
    }

    SANE_Status status = SANE_STATUS_GOOD;
    if (action == SANE_ACTION_GET_VALUE) {
        getOption(engine, option, value);
    } else if (action == SANE_ACTION_SET_VALUE) {
        status = setOption(engine, option, value, flags);
    } else if (action == SANE_ACTION_SET_AUTO) {
        status = setAutomatic(option);
    }
    if (status == SANE_STATUS_GOOD) {
        UpdateOptions(engine);
    }
    return status;
}

// ---- device list -----------------------------------------------------------------

void freeDevice(const SANE_Device* device)
{
    if (device != nullptr) {
        free(const_cast<char*>(device->name));
        free(const_cast<char*>(device->vendor));
        free(const_cast<char*>(device->model));
        delete device;
    }
}

void freeDeviceList()
{
    for (int i = 0; g_pDeviceListPtr != nullptr && i < iNum; ++i) {
        freeDevice(g_pDeviceListPtr[i]);
    }
    free(g_pDeviceListPtr);
    g_pDeviceListPtr = nullptr;
    iNum = 0;
}

char* copyToken(const char* token)
{
    char* copy = strdup(token != nullptr ? token : "");
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    return copy;
}

using DeviceRecord = std::unique_ptr<SANE_Device, void (*)(const SANE_Device*)>;

// A record for "<vendor>/<model>/<device name>". Front ends and the dll meta-backend cut
// names at ":", so the name's inner separators become "/".
DeviceRecord newDevice(char* description)
{
    DeviceRecord device(new SANE_Device{}, freeDevice);
    char* rest = nullptr;
    device->vendor = copyToken(strtok_r(description, "/", &rest));
    device->model = copyToken(strtok_r(nullptr, "/", &rest));
    char* name = copyToken(strtok_r(nullptr, "/", &rest));
    std::replace(name, name + strlen(name), ':', '/');
    device->name = name;
    device->type = "Scanner";
    return device;
}

void buildDeviceList(const NameList& found)
{
    freeDeviceList();
    g_pDeviceListPtr = static_cast<const SANE_Device**>(
        calloc(static_cast<size_t>(found.count) + 1, sizeof(SANE_Device*)));
    if (g_pDeviceListPtr == nullptr) {
        throw std::bad_alloc();
    }
    for (; iNum < found.count; ++iNum) {
        g_pDeviceListPtr[iNum] = newDevice(found.names[iNum]).release();
    }
}

// ---- open ------------------------------------------------------------------------

int openNamed(std::string name, SANE_Handle* handle)
{
    std::replace(name.begin(), name.end(), '/', ':');
    auto engine = std::make_unique<ScanLib>();
    const int result = engine->Open(name.c_str());
    if (result == SANE_STATUS_GOOD) {
        InitOptions(engine.get());
        iDpi = engine->GetIntValue("CURRENTDPI");
        *handle = engine.release();
    }
    return result;
}

// For the engine an empty name is that of the first network scanner. Where that does not open,
// the first of the list is meant, which has those on USB in front.
int openFirst(SANE_Handle* handle)
{
    const int result = openNamed("", handle);
    if (result == SANE_STATUS_GOOD) {
        return result;
    }
    NameList onUsb;
    const int listed = ScanLib::GetScanners(&onUsb.names, &onUsb.count, Device::kUsb);
    if (listed == 0) {
        const DeviceRecord first = newDevice(onUsb.names[0]);
        return openNamed(first->name, handle);
    }
    const bool isNone = listed == kNoScanners && result == SANE_STATUS_UNSUPPORTED;
    return isNone ? SANE_STATUS_INVAL : result;
}

// ---- frame start -------------------------------------------------------------------

// Front ends ask for the parameters when the area is mirrored already: a width that comes
// out one bit smaller there must not cost a pixel of each line that the scanner sends.
void keepPixels(ScanLib* engine, int pixels)
{
    constexpr int kMostSteps = 4;
    const double right = engine->GetDoubleValue("CURRENTBRX");
    const double step = std::nextafter(right, right + 1.0) - right;
    for (int i = 0; i < kMostSteps; ++i) {
        const int mirrored = engine->GetIntValue("PIXELS_PER_LINE");
        if (mirrored == pixels) {
            return;
        }
        const double left = engine->GetDoubleValue("CURRENTTLX");
        engine->SetDoubleValue("CURRENTTLX", mirrored < pixels ? left - step : left + step);
    }
}

// Turns the scan area about the middle of the bed. The feeder presents the paper from the
// other side; done twice, the area is as it was.
void mirrorArea(ScanLib* engine, bool isTraced)
{
    const CLogger log;
    const double left = engine->GetDoubleValue("CURRENTTLX");
    const double right = engine->GetDoubleValue("CURRENTBRX");
    const double edge = engine->GetDoubleValue("BOTTOMRIGHTX");
    const double width = right - left;
    const double newRight = edge - left;
    const double newLeft = edge - left - width;
    const int pixels = engine->GetIntValue("PIXELS_PER_LINE");
    engine->SetDoubleValue("CURRENTBRX", newRight);
    engine->SetDoubleValue("CURRENTTLX", newLeft);
    keepPixels(engine, pixels);
    if (!isTraced) {
        return;
    }
    SL_TRACE_TO(log, "width =  szCurrentBrx - szCurrentTlx");
    SL_TRACE_TO(log, "%lf = %lf - %lf", width, right, left);
    SL_TRACE_TO(log, "szCurrentBrx = szBottomRightX - szCurrentTlx");
    SL_TRACE_TO(log, "%lf = %lf - %lf", newRight, edge, left);
    SL_TRACE_TO(log, "szCurrentTlx = szBottomRightX - (szCurrentTlx - width)");
    SL_TRACE_TO(log, "%lf = %lf - (%lf + %lf)", newLeft, edge, left, width);
}

void closeDumpFile()
{
    if (__gTmpFile >= 0) {
        close(__gTmpFile);
        __gTmpFile = -1;
    }
}

void openDumpFile()
{
    closeDumpFile();
    __gTmpFile = open("/tmp/scan.dump", O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK,
                      S_IRUSR | S_IWUSR);
}

int startFrame(ScanLib* engine)
{
    const CLogger log;
    UpdateOptions(engine);
    SL_TRACE_TO(log, "before ScanLib::Start. ");
    const int status = engine->Start();
    SL_TRACE_TO(log, "after ScanLib::Start. ");
    if (status != SANE_STATUS_GOOD) {
        SL_TRACE_TO(log, "ScanLib start failed");
        if (status != SANE_STATUS_CANCELLED) {
            mirrorArea(engine, false);
        }
        engine->SetIntValue("CURRENTDPI", iDpi);
        UpdateOptions(engine);
    } else if (engine->GetIntValue("SCAN_SOURCE") == kFeederSource) {
        SL_TRACE_TO(log, "Scan Source is ADF");
        mirrorArea(engine, true);
    } else {
        SL_TRACE_TO(log, "Scan Source is NOT ADF");
    }
    openDumpFile();
    return status;
}

void computeParameters(ScanLib* engine, SANE_Parameters* params)
{
    const int mode = engine->GetIntValue("COLORDEPTH");
    UpdateOptions(engine);
    const bool isPreview = engine->GetIntValue("PREVIEW") == 1;
    engine->SetIntValue("CURRENTDPI", isPreview ? kPreviewDpi : iDpi);
    params->pixels_per_line = engine->GetIntValue("PIXELS_PER_LINE");
    params->lines = engine->GetIntValue("LINES");
    params->bytes_per_line = engine->GetIntValue("BYTES_PER_LINE");
    params->format = mode == kColour ? SANE_FRAME_RGB : SANE_FRAME_GRAY;
    params->last_frame = SANE_TRUE;
    params->depth = 8;
    engine->SetIntValue("CURRENTDPI", iDpi);
}

}  // namespace

// ---- option set --------------------------------------------------------------------

void InitOptions(ScanLib* engine)
{
    const CLogger log;
    SL_START_TO(log);
    std::fill(std::begin(m_opt), std::end(m_opt), SANE_Option_Descriptor{});
    listResolutions(engine);
    srWidth = {toFixed(engine->GetDoubleValue("TOPLEFTX")),
               toFixed(engine->GetDoubleValue("BOTTOMRIGHTX")), 0};
    srHeight = {toFixed(engine->GetDoubleValue("TOPLEFTY")),
                toFixed(engine->GetDoubleValue("BOTTOMRIGHTY")), 0};
    const bool hasFeeder = engine->GetIntValue("SCAN_SOURCE_ADF") == kFeederSource;

    describe(kOptionNumOptions, "", "Number of options",
             "Read-only option that specifies how many options a specific devices supports.",
             SANE_TYPE_INT, SANE_UNIT_NONE);
    m_opt[kOptionNumOptions].cap = SANE_CAP_SOFT_DETECT;
    describeGroup(kOptionImageGroup, "Image Settings", "");
    describe(kOptionResolution, "resolution", "Resolution",
             "The resolution of the scan job in dots per inch.", SANE_TYPE_INT, SANE_UNIT_DPI);
    m_opt[kOptionResolution].constraint_type = SANE_CONSTRAINT_WORD_LIST;
    m_opt[kOptionResolution].constraint.word_list = resolutionList;
    describeList(kOptionMode, "mode", "Color Depth", "The color depth of the scan job.", mode_list);
    describeList(kOptionSource, "source", "Scan source",
                 "Selects the scan source (such as a document-feeder).",
                 hasFeeder ? source_list_ADF : source_list);
    describe(kOptionPreview, "preview", "Preview", "Request a preview-quality scan.",
             SANE_TYPE_BOOL, SANE_UNIT_NONE);
    describeGroup(kOptionSizeGroup, "Custom Scan Size", "The size of the area to be scanned.");
    describeCorner(kOptionTlX, "tl-x", "Top-left x", "Top-left x position of scan area.", &srWidth);
    describeCorner(kOptionTlY, "tl-y", "Top-left y", "Top-left y position of scan area.",
                   &srHeight);
    describeCorner(kOptionBrX, "br-x", "Bottom-right x", "Bottom-right x position of scan area.",
                   &srWidth);
    describeCorner(kOptionBrY, "br-y", "Bottom-right y", "Bottom-right y position of scan area.",
                   &srHeight);
    describeList(kOptionMedia, "media", "Media Size", "The size of the area to be scanned.",
                 media_list);
    SL_END_TO(log);
}

void UpdateOptions(ScanLib* engine)
{
    engine->SetIntValue("CURRENTDPI", engine->GetIntValue("CURRENTDPI"));
}

int* GetListValues(ScanLib* engine)
{
    const int count = std::clamp(engine->GetIntValue("RESOLUTIONS"), 0, kMaxResolutions);
    int* values = static_cast<int*>(malloc((static_cast<size_t>(count) + 1) * sizeof(int)));
    if (values == nullptr) {
        return nullptr;
    }
    values[0] = count;
    for (int i = 1; i <= count; ++i) {
        values[i] = storedResolution(engine, i);
    }
    return values;
}

const char* const* search_string_list(const char* const* list, const char* s)
{
    for (; list != nullptr && *list != nullptr; ++list) {
        if (strcmp(*list, s) == 0) {
            return list;
        }
    }
    return nullptr;
}

SANE_Status CheckValue(const SANE_Option_Descriptor* option, void* value, int* info)
{
    const CLogger log;
    SL_START_TO(log);
    SANE_Status status = SANE_STATUS_GOOD;
    switch (option->constraint_type) {
    case SANE_CONSTRAINT_WORD_LIST: {
        const SANE_Word word = *static_cast<SANE_Word*>(value);
        const SANE_Word* first = option->constraint.word_list + 1;
        const SANE_Word* last = first + option->constraint.word_list[0];
        status = std::find(first, last, word) != last ? SANE_STATUS_GOOD : SANE_STATUS_INVAL;
        break;
    }
    case SANE_CONSTRAINT_STRING_LIST:
        if (search_string_list(option->constraint.string_list, static_cast<char*>(value)) ==
            nullptr) {
            status = SANE_STATUS_INVAL;
        }
        break;
    case SANE_CONSTRAINT_RANGE: {
        const SANE_Range& range = *option->constraint.range;
        SANE_Word& word = *static_cast<SANE_Word*>(value);
        const SANE_Word given = word;
        if (given < range.min) {
            word = range.min;
        } else if (given > range.max) {
            word = range.max;
        }
        if (word != given && info != nullptr) {
            *info |= SANE_INFO_INEXACT;
        }
        break;
    }
    default:
        break;
    }
    SL_RETURN_TO(log, status);
}

// ---- entry points --------------------------------------------------------------------

SANE_Status entry::sane_ScanLib_init(SANE_Int* version_code, SANE_Auth_Callback /*authorize*/)
{
    const CLogger log;
    SL_TRACE_TO(log, "::::::::::::::: SCANLIB START ::::::::::::::: ");
    SL_START_TO(log);
    if (version_code != nullptr) {
        *version_code = kVersionCode;
    }
    prepareForExceptions();
    SL_RETURN_TO(log, SANE_STATUS_GOOD);
}

void entry::sane_ScanLib_exit()
{
    const CLogger log;
    SL_START_TO(log);
    freeDeviceList();
    closeDumpFile();
    SL_END_TO(log);
    SL_TRACE_TO(log, "::::::::::::::: SCANLIB END ::::::::::::::: ");
}

SANE_Status entry::sane_ScanLib_get_devices(const SANE_Device*** device_list,
                                            SANE_Bool /*local_only*/)
{
    const CLogger log;
    SL_START_TO(log);
    const SANE_Status status = guarded([&] {
        NameList found;
        if (device_list == nullptr || ScanLib::GetScanners(&found.names, &found.count) != 0) {
            SL_TRACE_TO(log, "No scanners found");
            return SANE_STATUS_INVAL;
        }
        buildDeviceList(found);
        *device_list = g_pDeviceListPtr;
        return SANE_STATUS_GOOD;
    });
    SL_RETURN_TO(log, status);
}

SANE_Status entry::sane_ScanLib_open(SANE_String_Const name, SANE_Handle* handle)
{
    const CLogger log;
    SL_START_TO(log);
    const SANE_Status status = guarded([&]() -> int {
        if (handle == nullptr) {
            return SANE_STATUS_INVAL;
        }
        return name == nullptr || *name == '\0' ? openFirst(handle) : openNamed(name, handle);
    });
    SL_RETURN_TO(log, status);
}

void entry::sane_ScanLib_close(SANE_Handle handle)
{
    const CLogger log;
    SL_START_TO(log);
    const std::unique_ptr<ScanLib> engine(engineOf(handle));
    if (engine) {
        engine->InterruptAndWait();
        guarded([&] { return engine->CancelAndFlush(); });
    }
    SL_END_TO(log);
}

const SANE_Option_Descriptor* entry::sane_ScanLib_get_option_descriptor(SANE_Handle /*handle*/,
                                                                        SANE_Int n)
{
    const CLogger log;
    SL_START_TO(log);
    const SANE_Option_Descriptor* descriptor = nullptr;
    if (n >= 0 && n < kOptionCount) {
        descriptor = &m_opt[n];
    } else {
        SL_TRACE_TO(log, "invalid option number");
    }
    SL_END_TO(log);
    return descriptor;
}

SANE_Status entry::sane_ScanLib_control_option(SANE_Handle handle, SANE_Int option,
                                               SANE_Action action, void* value, SANE_Int* info)
{
    const CLogger log;
    SL_START_TO(log);
    if (handle == nullptr) {
        SL_RETURN_TO(log, SANE_STATUS_INVAL);
    }
    const ScanLib::Operation operation(*engineOf(handle), ScanLib::Occupation::store);
    const SANE_Status status =
        guarded([&] { return controlOption(engineOf(handle), option, action, value, info); });
    SL_RETURN_TO(log, status);
}

SANE_Status entry::sane_ScanLib_get_parameters(SANE_Handle handle, SANE_Parameters* params)
{
    const CLogger log;
    SL_START_TO(log);
    if (handle == nullptr) {
        SL_RETURN_TO(log, SANE_STATUS_INVAL);
    }
    const ScanLib::Operation operation(*engineOf(handle), ScanLib::Occupation::store);
    guarded([&] {
        if (params != nullptr) {
            computeParameters(engineOf(handle), params);
        }
        return SANE_STATUS_GOOD;
    });
    SL_RETURN_TO(log, SANE_STATUS_GOOD);
}

SANE_Status entry::sane_ScanLib_start(SANE_Handle handle)
{
    const CLogger log;
    SL_START_TO(log);
    if (handle == nullptr) {
        SL_RETURN_TO(log, SANE_STATUS_INVAL);
    }
    const ScanLib::Operation operation(*engineOf(handle), ScanLib::Occupation::job);
    const SANE_Status status = guarded([&]() -> int {
        return operation.isOwner() ? startFrame(engineOf(handle)) : SANE_STATUS_DEVICE_BUSY;
    });
    SL_RETURN_TO(log, status);
}

SANE_Status entry::sane_ScanLib_read(SANE_Handle handle, SANE_Byte* data, SANE_Int max_length,
                                     SANE_Int* length)
{
    const CLogger log;
    SL_START_TO(log);
    if (length != nullptr) {
        *length = 0;
    }
    if (handle == nullptr) {
        SL_RETURN_TO(log, SANE_STATUS_INVAL);
    }
    const ScanLib::Operation operation(*engineOf(handle), ScanLib::Occupation::job);
    SANE_Int delivered = 0;
    const SANE_Status status = guarded([&]() -> int {
        // Another thread is cancelling.
        if (!operation.isOwner()) {
            return SANE_STATUS_CANCELLED;
        }
        return engineOf(handle)->AcquireImage(data, max_length, &delivered);
    });
    if (length != nullptr) {
        *length = delivered;
    }
    SL_RETURN_TO(log, status);
}

// May be called in a signal handler or from another thread: while an operation runs on
// the handle, nothing is done here but to tell it.
void entry::sane_ScanLib_cancel(SANE_Handle handle)
{
    if (handle == nullptr) {
        return;
    }
    const ScanLib::Operation operation(*engineOf(handle), ScanLib::Occupation::cancel);
    if (!operation.isOwner()) {
        engineOf(handle)->Interrupt();
        return;
    }
    // What a signal handler interrupted may not have looked at it yet.
    const int error = errno;
    const CLogger log;
    SL_START_TO(log);
    guarded([&] { return engineOf(handle)->CancelAndFlush(); });
    SL_END_TO(log);
    errno = error;
}

SANE_Status entry::sane_ScanLib_set_io_mode(SANE_Handle /*handle*/, SANE_Bool /*non_blocking*/)
{
    const CLogger log;
    SL_START_TO(log);
    SL_RETURN_TO(log, SANE_STATUS_UNSUPPORTED);
}

SANE_Status entry::sane_ScanLib_get_select_fd(SANE_Handle /*handle*/, SANE_Int* /*fd*/)
{
    const CLogger log;
    SL_START_TO(log);
    SL_RETURN_TO(log, SANE_STATUS_UNSUPPORTED);
}
