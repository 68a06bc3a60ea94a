#pragma once

#include "kaImageWriter.h"

#include <QStringList>

#include <string>

#include <vector>

// What the programs know about the frames and files of the library's animation exports.
namespace kaapps {

// The frames a sequence export walks: from frame 0, one by one up to the start (pre-rolled:
// the animation and simulation step through them, nothing is written), then every step-th
// frame up to the stop (rendered and written).
class FrameWalk {
public:
    // Start and stop as the export resolves them (negative: the preferences), a step below 1
    // as 1.
    FrameWalk(const kaImageWriter& writer, int start, int stop, int step);
    int start() const { return _start; }
    int stop() const { return _stop; }
    int step() const { return _step; }
    // The frames before the start that the walk steps through.
    int preRolled() const;
    // The frames written, in order.
    std::vector<int> written() const;
    // Which pass of the export's loop renders 'frame' (0 for the first frame of the walk).
    int passOf(int frame) const;

private:
    int _start, _stop, _step;
};

// The files a sequence export to 'out' writes, by view, then pass, then frame; the library's
// list without the pre-rolled frames.
QStringList writtenFiles(const kaImageWriter& writer, const QString& out,
                         const std::vector<unsigned int>& passes, bool multiLayer,
                         const FrameWalk& walk);

// The same for a sequence raytraced on the render cluster, which names its files
// <base>-<frame>[-left|-right][-<pass>].<ext>, in the same order.
QStringList clusterWrittenFiles(const kaImageWriter& writer, const QString& out,
                                const std::vector<unsigned int>& passes, bool multiLayer,
                                const FrameWalk& walk);

// The files of one written frame (every view and pass), taken from writtenFiles()'s list.
QStringList filesOfFrame(const QStringList& files, const FrameWalk& walk, size_t frameIndex);

// The frame rate of a run that walks the timeline: 'given' when positive, else the preference
// "MovieExport fps", else 25. Animations keyed in seconds (imported scenes) play at it from
// then on.
int timelineRate(int given);

// The id of the scene's animation called 'name' (what an export's animation argument takes); 0
// when there is none, with the names there are, quoted and separated by ", ", in 'known'.
__int64 animationNamed(const std::string& name, std::string& known);

// Capture i of 'count' of a fast export to 'out': numbered -00000, -00001, ... when there are
// several.
QString captureName(const QString& out, int i, int count);

// Whether a file is there and reads back whole as an image.
bool isCompleteImage(const QString& file);

} // namespace kaapps
