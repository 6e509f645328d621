// What the documents' pieces of code find around them.

#pragma once

#include <vndlp/vndlp.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

extern const std::string path;
extern const int layerCount;
extern const std::unique_ptr<vndlp::DLPWriter> writer;
extern const vndlp::DlpParameters settings;
vndlp::SliceImage drawLayer(int layer);
double areaUm2(int layer);
