// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QObject>
#include <QTimer>

#include <array>

class settings;

// Reads the analogue-to-digital converter board: every 20 s, runs the unit's script for each of
// the nine channels, converts the 8-bit reading and writes it to the store: temperatures in
// hundredths of a degree Celsius, voltages in millivolts, currents in milliamperes. For a channel
// that cannot be read it stores 0, or -9999 for a temperature, without a log message; the next
// cycle reads it again.
class BusyBee : public QObject
{
    Q_OBJECT

public:
    // Readings of a thermistor, from -25 degrees Celsius upwards in steps of 5.
    using LookupTable = std::array<unsigned int, 29>;

    BusyBee(QObject *parent, settings *store);

    // The raw reading of a channel; blocks for up to a second.
    unsigned int read_i2c(int channel);

    // Millivolts before a divider of the given factor, for a full scale of 3300 mV at 255.
    static int convertVoltage(int raw, double factor);
    // Hundredths of a degree by interpolation in a lookup table; -9999 for a reading below it.
    int convertTemperature(int raw, int table) const;
    // Milliamperes of the interstage supply and of a lamp's LEDs, from the sense voltage.
    static int convertCurrentIntersage(int millivolts);
    static int convertCurrentLEDs(int millivolts);

private slots:
    void processADC();

private:
    QTimer readTimer;
    settings *settingsStore;
    const std::array<LookupTable, 1> lookupTables;
};
