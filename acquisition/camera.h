#pragma once
// CCamera: the sensor evaluation camera, opened through the camera library.
// It identifies the sensor on the camera (part id, names, revision), loads
// the sensor's start-up preset, and answers whether sensor data files exist
// for a sensor and revision. Capture through the image-source service is a
// separate part that the camera object keeps (see automation()).

#include "acquisition/sensorsupport.h"

#include <QString>
#include <QStringList>
#include <cstdint>
#include <memory>

struct tl_camera_t;

// What the capture side keeps in the camera object: created when first
// needed, destroyed with the camera object (which ends the capture service).
class CameraAutomation
{
public:
    virtual ~CameraAutomation() = default;
};

class CCamera
{
public:
    // One record of the supported-sensor table: word 0 the part id, word 1
    // the mask of supported revisions (bit 0 revision 1), words 2-9 the
    // sensor-support parameters (none for the demo sensors).
    using SupportedRecord = std::uint32_t[10];
    // The table, ended by a record whose part id is 0.
    static const SupportedRecord kSupportedSensors[];

    CCamera();
    ~CCamera();
    CCamera(const CCamera &) = delete;
    CCamera &operator=(const CCamera &) = delete;

    // Opens the first camera (closing one that is open), identifies its
    // sensor and loads its "Strobix Initialization" preset. The sensor data
    // folder is the library's, with `sensorDataSubfolder` appended when
    // given. Returns the library status (0 on success); on failure no camera
    // is open.
    int open(const char *sensorDataSubfolder = nullptr);
    // Stops the transport and closes the cameras; nothing when none is open.
    void close();

    bool isOpen() const { return m_camera != nullptr; }
    // The library's handle of the open camera; null when none is open.
    tl_camera_t *handle() const { return m_camera; }
    // Cameras the library found when it was opened (0 when closed).
    int cameraCount() const { return m_count; }

    // Identification of the open sensor (0, empty, 0 without a camera).
    std::uint32_t partId() const;
    QString sensorName() const;
    QString sensorAlternateName() const;
    int revision() const;

    // The sensor's default INI file; empty without a camera or when the
    // library has none.
    QString defaultIniFile() const;

    // Register access by name; null without a camera.
    kestro::SensorSupport *sensorSupport() const { return m_support.get(); }

    // Sensor data files for (name, alternate name, revision) in the
    // library's folder, and the existence test for a revision bit mask.
    static QStringList sensorDataFiles(const QString &name, const QString &alternateName,
                                       int revision);
    static bool sensorDataExists(const QString &name, const QString &alternateName,
                                 std::uint32_t revisionMask);
    // Index of the part id in the supported table, -1 when not there.
    static int supportedIndex(std::uint32_t partId);

    // The capture side; null until it is set.
    CameraAutomation *automation() const { return m_automation.get(); }
    void setAutomation(std::unique_ptr<CameraAutomation> automation);

private:
    tl_camera_t **m_list = nullptr;
    int m_count = 0;
    tl_camera_t *m_camera = nullptr;
    std::unique_ptr<kestro::SensorSupport> m_support;
    std::unique_ptr<CameraAutomation> m_automation;
};
