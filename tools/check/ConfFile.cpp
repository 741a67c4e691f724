// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ConfFile.h"

#include "ConfLine.h"
#include "RawFile.h"
#include "Text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace check {

namespace {

std::string idsOf(const ConfModel& model)
{
    return hexId(model.vendor) + ":" + hexId(model.product);
}

void judgeFeatureFile(const ConfModel& model, Voice& voice)
{
    const std::string& path = model.featureFile;
    const std::string file = "the feature file " + quoted(path);
    if (path[0] != '/') {
        voice.error(model.line, "feature-path-relative",
                    file +
                        " is not an absolute path: it is looked for in whatever folder the "
                        "scan program was started in.",
                    "Write the whole path of the feature file, beginning with \"/\", without "
                    "blanks and quotes.");
        return;
    }
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) {
        const int error = errno;
        const std::string why = strerror(error);
        if (error == EACCES) {
            voice.error(
                model.line, "feature-file-unreadable",
                file + " may not be read by you, so opening " + quoted(model.name) + " fails.",
                closedFolderAdvice(path));
            return;
        }
        voice.error(
            model.line, "feature-file-missing",
            file + " cannot be found (" + why + "), so opening " + quoted(model.name) + " fails.",
            "Install the feature file, or correct its path in the configuration file.");
    } else if (!S_ISREG(info.st_mode)) {
        voice.error(model.line, "feature-file-not-a-file", file + " is no plain file.",
                    "Correct the path of the feature file in the configuration file.");
    } else if (access(path.c_str(), R_OK) != 0) {
        voice.error(model.line, "feature-file-unreadable",
                    file + " may not be read by you, so opening " + quoted(model.name) + " fails.",
                    "Let everybody read it: chmod a+r " + printable(path));
    } else if ((info.st_mode & S_IROTH) == 0) {
        voice.warning(model.line, "feature-file-private",
                      file + " may not be read by every user; those others cannot scan.",
                      "Let everybody read it: chmod a+r " + printable(path));
    }
}

void add(ConfFile& file, ConfModel model, Voice& voice)
{
    if (const ConfModel* first = file.find(model.vendor, model.product)) {
        model.counts = false;
        voice.warning(model.line, "duplicate-ids",
                      "the IDs " + idsOf(model) + " stand on line " + std::to_string(first->line) +
                          " already; that line counts, this one (" + quoted(model.name) +
                          ") never does.",
                      "Remove one of the lines with the same IDs.");
    } else {
        judgeFeatureFile(model, voice);
    }
    file.models.push_back(model);
}

}  // namespace

const ConfModel* ConfFile::find(unsigned vendor, unsigned product) const
{
    const auto found = std::find_if(models.begin(), models.end(), [=](const ConfModel& model) {
        return model.vendor == vendor && model.product == product;
    });
    return found != models.end() ? &*found : nullptr;
}

ConfFile ConfFile::read(const std::string& path, Findings& findings)
{
    ConfFile file;
    file.path = path;
    const RawFile raw = RawFile::read(path, "the configuration file", findings);
    file.isRead = raw.isRead;
    Voice voice(findings, path);
    for (const Piece& piece : raw.pieces) {
        if (piece.text.empty() || piece.text[0] == '#') {
            continue;
        }
        const ProbedModel model = judgeConfLine(piece.text, piece.line, voice);
        if (!model.isTaken) {
            file.skipped.push_back(piece.line);
            continue;
        }
        std::string name = model.name;
        std::replace(name.begin(), name.end(), '_', ' ');
        add(file, {piece.line, model.vendor, model.product, model.featureFile, name, true}, voice);
    }
    if (file.isRead && file.models.empty()) {
        voice.error(0, "no-models",
                    "no line of the file names a scanner, so this backend never finds one.",
                    "Add a line for your scanner; the comments in the shipped file tell how.");
    }
    return file;
}

void judgeTogether(const std::vector<ConfFile>& files, Findings& findings)
{
    for (std::size_t i = 1; i < files.size(); ++i) {
        Voice voice(findings, files[i].path);
        for (const ConfModel& model : files[i].models) {
            for (std::size_t j = 0; j < i && model.counts; ++j) {
                if (const ConfModel* other = files[j].find(model.vendor, model.product)) {
                    voice.warning(model.line, "ids-in-two-files",
                                  "the IDs " + idsOf(model) + " stand in " +
                                      printable(files[j].path) + ", line " +
                                      std::to_string(other->line) +
                                      ", too: such a scanner is listed twice.",
                                  "Keep the line in one of the two configuration files.");
                }
            }
        }
    }
}

}  // namespace check
