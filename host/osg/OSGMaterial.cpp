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

const SimpleMaterial* resolveSimpleMaterial(const Material* material) {
    // Switches nest only a few levels; the bound guards against a switch that holds itself.
    for (int depth = 0; material && depth < 8; ++depth) {
        if (auto* simple = dynamic_cast<const SimpleMaterial*>(material))
            return simple;
        auto* choice = dynamic_cast<const SwitchMaterial*>(material);
        material = choice ? choice->getCurrentMaterial().get() : nullptr;
    }
    return nullptr;
}

} // namespace osg
