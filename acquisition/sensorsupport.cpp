#include "acquisition/sensorsupport.h"

#include "platform/tarnlib/tarnlib.h"

namespace kestro {

SensorSupport::SensorSupport(tl_camera_t *camera)
    : m_camera(camera)
{ }

int SensorSupport::initialize()
{
    m_initialized = false;
    m_registers.clear();
    m_order.clear();
    int count = 0;
    if (const int status = tl_RegisterCount(m_camera, &count))
        return status;
    for (int i = 0; i < count; ++i) {
        char name[TL_NAME_SIZE];
        Register r;
        if (const int status = tl_RegisterInfo(m_camera, i, name, sizeof name, &r.address,
                                               &r.bits)) {
            m_registers.clear();
            m_order.clear();
            return status;
        }
        const QString key = QString::fromLatin1(name);
        m_registers.insert(key, r);
        m_order << key;
    }
    m_initialized = true;
    return TL_OK;
}

bool SensorSupport::registerInfo(const QString &name, unsigned int *address, int *bits) const
{
    const auto it = m_registers.constFind(name);
    if (it == m_registers.constEnd())
        return false;
    if (address)
        *address = it->address;
    if (bits)
        *bits = it->bits;
    return true;
}

int SensorSupport::readRegister(const QString &name, unsigned int *value) const
{
    unsigned int address = 0;
    if (!registerInfo(name, &address, nullptr))
        return TL_ERR_NO_REGISTER;
    return tl_ReadRegister(m_camera, address, value);
}

int SensorSupport::writeRegister(const QString &name, unsigned int value) const
{
    unsigned int address = 0;
    if (!registerInfo(name, &address, nullptr))
        return TL_ERR_NO_REGISTER;
    return tl_WriteRegister(m_camera, address, value);
}

} // namespace kestro
