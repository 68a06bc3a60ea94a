#pragma once

#include "OSGChangeList.h"
#include "OSGFieldContainer.h"

#include <map>
#include <string>

namespace osg {

// Named text values attached to something (the raytracing settings of a scene, say), in key
// order.
class StringAttributeMap : public FieldContainer {
public:
    enum : BitVector { AttributesFieldMask = 1 << 0 };
    static RefPtr<StringAttributeMap> create();
    const char* getTypeName() const override { return "StringAttributeMap"; }
    void setAttribute(const std::string& key, const std::string& value);
    // False when the key is absent.
    bool getAttribute(const std::string& key, std::string& value) const;
    const std::map<std::string, std::string>& getAttributes() const { return _attributes; }

private:
    StringAttributeMap() = default;
    std::map<std::string, std::string> _attributes;
};
using StringAttributeMapPtr = RefPtr<StringAttributeMap>;

} // namespace osg
