#pragma once

#include <QString>

// An archive as a part of the program knows it: what a reference to it is made from.
class Repository
{
public:
    virtual ~Repository() = default;
    // The archive's package folder.
    virtual QString repositoryPath() const = 0;
};
