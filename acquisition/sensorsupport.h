#pragma once
// Per-sensor register access by name for the open camera. The camera object
// creates one context per opened camera; its initialisation (after the
// sensor is identified and its start-up preset loaded) reads the sensor's
// register descriptions from the camera library, so that callers can name a
// register instead of knowing its address and width.

#include <QMap>
#include <QString>
#include <QStringList>

struct tl_camera_t;

namespace kestro {

class SensorSupport
{
public:
    explicit SensorSupport(tl_camera_t *camera);

    // Reads the register descriptions; returns the library status (0 on
    // success). Before it, or after a failure, no register is known.
    int initialize();
    bool isInitialized() const { return m_initialized; }

    // Register names in the sensor data file's order.
    QStringList registerNames() const { return m_order; }
    bool hasRegister(const QString &name) const { return m_registers.contains(name); }
    // Address and width of a named register; false when unknown.
    bool registerInfo(const QString &name, unsigned int *address, int *bits) const;

    // Library status; TL_ERR_NO_REGISTER for an unknown name.
    int readRegister(const QString &name, unsigned int *value) const;
    int writeRegister(const QString &name, unsigned int value) const;

private:
    struct Register
    {
        unsigned int address = 0;
        int bits = 0;
    };
    tl_camera_t *m_camera;
    bool m_initialized = false;
    QMap<QString, Register> m_registers;
    QStringList m_order;
};

} // namespace kestro
