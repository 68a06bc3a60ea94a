#include "OSGMaterial.h"

namespace osg {

void Material::setName(const std::string& name) {
    _name = name;
    recordChange(MaterialPtr(this), NameFieldMask);
}

RefPtr<SimpleMaterial> SimpleMaterial::create(const std::string& name) {
    RefPtr<SimpleMaterial> m(new SimpleMaterial());
    m->Material::setName(name);
    return m;
}

RefPtr<SwitchMaterial> SwitchMaterial::create(const std::string& name) {
    RefPtr<SwitchMaterial> m(new SwitchMaterial());
    m->Material::setName(name);
    return m;
}

void SwitchMaterial::addMaterial(const MaterialPtr& material) {
    _materials.push_back(material);
    recordChange(MaterialPtr(this), MaterialsFieldMask);
}

void SwitchMaterial::setChoice(int choice) {
    _choice = choice;
    recordChange(MaterialPtr(this), ChoiceFieldMask);
}

MaterialPtr SwitchMaterial::getCurrentMaterial() const {
    return _choice >= 0 && size_t(_choice) < _materials.size() ? _materials[size_t(_choice)]
                                                               : MaterialPtr();
}

} // namespace osg
