// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Scene.h"

#include <stdexcept>

namespace bench {

namespace {

constexpr int kReadSize = 32768;

std::string modulePath(const Scene& scene)
{
    return scene.modules + "/libsane-" + scene.backend + ".so.1";
}

std::string modelPath(const Scene& scene)
{
    return std::string(BENCH_MODELS_DIR "/") + scene.model + ".model";
}

}  // namespace

standin::UsbScanner* Stage::attached = nullptr;

Stage::Stage(const Scene& scene) : live_(modelPath(scene), scene.settings), block_(kReadSize)
{
    attached = &live_;
    module_ = std::make_unique<Module>(modulePath(scene));
    device_ = std::make_unique<Device>(*module_, scene.device);
    device_->set(scene.job);
    page_ = device_->parameters();
    scan();
    player_ = std::make_unique<standin::Player>(live_.recording());
    attached = player_.get();
}

Stage::~Stage()
{
    device_.reset();
    module_.reset();
    attached = nullptr;
}

void Stage::scan()
{
    if (device_->scan(block_.data(), kReadSize) != pageBytes()) {
        throw std::runtime_error("a page is not whole");
    }
}

std::vector<unsigned char> Stage::scanWhole()
{
    std::vector<unsigned char> page;
    device_->scan(block_.data(), kReadSize, [&page](const unsigned char* bytes, int size) {
        page.insert(page.end(), bytes, bytes + size);
    });
    return page;
}

}  // namespace bench

standin::UsbScanner* standin::attachedScanner()
{
    return bench::Stage::attached;
}
