#pragma once

#include "OSGChangeList.h"
#include "OSGNode.h"
#include "OSGViewport.h"

#include <QByteArray>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

// The scene as it travels to the render nodes: every object the nodes need to raytrace the
// master's viewport (nodes, cores, meshes, materials, lights, plates, the background), known
// on both sides by the master's field-container id. The first message carries them all; after
// that a message carries only the objects of the change list (and the new objects they now
// refer to). GUI thread only.
class kaClusterSceneEncoder {
public:
    // Everything below the viewport's root and its background.
    QByteArray encodeScene(const osg::UberViewport& viewport);
    // The objects among 'changes' the nodes know, with the new objects they refer to; the
    // viewport's root and background when they were replaced.
    QByteArray encodeChanges(const osg::UberViewport& viewport,
                             const std::vector<osg::ChangeList::Entry>& changes);
    // Forgets what the nodes know (a new cluster starts from nothing).
    void reset() { _sent.clear(); }
    bool hasScene() const { return !_sent.empty(); }

private:
    class Writer;
    void ensure(Writer& out, const osg::FieldContainer* container);
    void write(Writer& out, const osg::FieldContainer* container, osg::BitVector mask);
    QByteArray finish(Writer& out, const osg::UberViewport& viewport);

    std::set<uint32_t> _sent;
};

// The nodes' copy of the master's scene, brought up to date message by message.
class kaClusterSceneDecoder {
public:
    // Applies one message of the encoder; false (with the reason) for a message it cannot
    // read, the scene staying as far as it got.
    bool apply(const QByteArray& message, std::string& error);
    const osg::NodePtr& getRoot() const { return _root; }
    const osg::BackgroundPtr& getBackground() const { return _background; }

private:
    class Reader;
    bool read(Reader& in, std::string& error);
    osg::FieldContainerPtr find(uint32_t masterId) const;

    std::map<uint32_t, osg::FieldContainerPtr> _objects;
    osg::NodePtr _root;
    osg::BackgroundPtr _background;
};
