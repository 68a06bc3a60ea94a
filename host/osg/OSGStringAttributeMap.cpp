#include "OSGStringAttributeMap.h"

namespace osg {

RefPtr<StringAttributeMap> StringAttributeMap::create() {
    return RefPtr<StringAttributeMap>(new StringAttributeMap());
}

void StringAttributeMap::setAttribute(const std::string& key, const std::string& value) {
    _attributes[key] = value;
    recordChange(RefPtr<StringAttributeMap>(this), AttributesFieldMask);
}

bool StringAttributeMap::getAttribute(const std::string& key, std::string& value) const {
    auto it = _attributes.find(key);
    if (it == _attributes.end())
        return false;
    value = it->second;
    return true;
}

} // namespace osg
