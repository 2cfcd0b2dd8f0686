// A logger without a worker, so that records wait for a drain, and its file.

#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/tempFolder.h"
#include "support/testLogger.h"

class SysLoggerTest : public testing::Test {
  protected:
    explicit SysLoggerTest(std::uint32_t scheme = 1) : m_scheme(scheme) {}

    void SetUp() override { open(); }

    void open() {
        m_logger = std::make_unique<SysLogger>(m_folder.name("x.log"), m_scheme, startNoWorker);
    }

    std::string file() const { return m_folder.read("x.log"); }

    // What a record leaves in an empty file and on standard error; the record is posted and goes.
    std::string written(SysLogRecord* record) {
        const std::string before = file();
        testing::internal::CaptureStderr();
        m_logger->post(record);
        m_logger->drain();
        m_complaint = testing::internal::GetCapturedStderr();
        return file().substr(before.size());
    }

    TempFolder m_folder;
    std::string m_complaint;
    std::unique_ptr<SysLogger> m_logger;

  private:
    std::uint32_t m_scheme;
};
