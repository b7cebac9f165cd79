#pragma once

#include <QStringView>
#include <array>

// One fixed alert: everything an alert shows, as constant data. Templates are chosen, never
// composed, so that the same failure always reads the same way.
struct AlertTemplate
{
    // The platform's alert styles.
    static constexpr quint64 kWarningStyle = 0;
    static constexpr quint64 kInformationalStyle = 1;
    static constexpr quint64 kCriticalStyle = 2;

    quint64 alertStyle = kWarningStyle;
    QStringView message;
    QStringView informativeText;
    // An anchor in the help book; a null view when the alert offers no help.
    QStringView helpTag;
    // Action codes; 0 fills an empty place.
    std::array<qint32, 3> actions{};
};

// A row of an association table: several keys may name the same template.
struct AlertAssociation
{
    QStringView key;
    const AlertTemplate* alertTemplate = nullptr;
};
