#include "neighbours/fru_objects.hpp"

namespace ubbsim
{

namespace
{

void putText(FruObject& object, const std::string& name,
             const std::string& value)
{
    // A field the EEPROM doesn't carry is not published at all.
    if (!value.empty())
    {
        object.properties[name] = value;
    }
}

FruObject makeObject(const std::string& name, uint32_t bus,
                     const FruContents& fru, const char* thermalProperty)
{
    FruObject object;
    object.path = std::string(fruRoot) + "/" + name;
    object.properties["BUS"] = bus;
    object.properties["ADDRESS"] = fruEepromAddress;
    putText(object, "PRODUCT_PRODUCT_NAME", fru.productName);
    putText(object, "PRODUCT_VERSION", fru.version);
    putText(object, "MULTIRECORD_VR_HW_DESIGN", fru.hwDesign);
    putText(object, thermalProperty, fru.thermal);
    for (const auto& [property, value] : fru.extra)
    {
        object.properties[property] = value;
    }
    return object;
}

} // namespace

std::vector<FruObject> fruObjects(const Scenario& scenario)
{
    std::vector<FruObject> objects;
    for (size_t n = 0; n < scenario.oams.size(); ++n)
    {
        const OamSlot& slot = scenario.oams[n];
        if (slot.present && slot.fru.present)
        {
            objects.push_back(makeObject("OAM_" + std::to_string(n),
                                         oamFruBus[n], slot.fru,
                                         "MULTIRECORD_THERMAL_MODEL"));
        }
    }
    if (scenario.ubbFru.present)
    {
        // The UBB's EEPROM is read for its air flow direction instead.
        objects.push_back(makeObject("UBB", ubbFruBus, scenario.ubbFru,
                                     "MULTIRECORD_AIR_FLOW_DIR"));
    }
    return objects;
}

} // namespace ubbsim
