#pragma once

#include <QString>
#include <QVariant>

// The text by which a value is shown in exception descriptions and log lines. Classes of
// the product make themselves describable by registering a converter to QString.
class ValueDescription
{
public:
    static QString describe(const QVariant& value);

private:
    static QString describe(const QVariant& value, int indent);
};
