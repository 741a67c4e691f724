// SPDX-License-Identifier: LGPL-2.1-or-later
// An engine with a transport of its own behind the entry points.
#pragma once

#include "SaneInterface.h"
#include "Sandbox.h"
#include "TestEngine.h"

#include <gmock/gmock.h>

#include <memory>
#include <vector>

class HandleTest : public testing::Test {
protected:
    HandleTest() : engine(new TestEngine), calls(engine->journal)
    {
        engine->set("RESOLUTIONS", 3);
        engine->set("RESOLUTIONS_1", 75);
        engine->set("RESOLUTIONS_2", 10);
        engine->set("RESOLUTIONS_3", 300);
        InitOptions(engine);
        setResolution(10);
    }
    ~HandleTest() override
    {
        if (engine != nullptr) {
            entry::sane_ScanLib_close(handle());
        }
        entry::sane_ScanLib_exit();
    }

    SANE_Handle handle() { return static_cast<ScanLib*>(engine); }

    void setResolution(SANE_Word dpi)
    {
        EXPECT_EQ(
            entry::sane_ScanLib_control_option(handle(), 2, SANE_ACTION_SET_VALUE, &dpi, nullptr),
            SANE_STATUS_GOOD);
    }

    void start()
    {
        ASSERT_EQ(entry::sane_ScanLib_start(handle()), SANE_STATUS_GOOD);
        calls->clear();
    }

    SANE_Status read(int size = 100)
    {
        std::vector<SANE_Byte> data(static_cast<std::size_t>(size));
        length = -1;
        return entry::sane_ScanLib_read(handle(), data.data(), size, &length);
    }

    void cancel() { entry::sane_ScanLib_cancel(handle()); }

    double left() { return engine->GetDoubleValue("CURRENTTLX"); }
    double right() { return engine->GetDoubleValue("CURRENTBRX"); }

    const EmptyFolder folder{"/tmp"};
    TestEngine* engine;
    std::shared_ptr<Journal> calls;
    SANE_Int length = 0;
};
