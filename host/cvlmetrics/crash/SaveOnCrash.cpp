#include "cvlmetrics/host/SaveOnCrash.h"

#include "CrashHandler.h"
#include "RescueThread.h"

#include <mutex>
#include <new>
#include <pthread.h>
#include <system_error>

namespace Metrics {

namespace {

// Switching it on and off. Taken by forks.
std::mutex& SwitchMutex() {
    static std::mutex& mutex = *new std::mutex;
    return mutex;
}

void LockForFork() noexcept {
    SwitchMutex().lock();
}

void UnlockAfterFork() noexcept {
    SwitchMutex().unlock();
}

void StartAnewInChild() noexcept {
    CrashHandler::StartAnewInChild();
    RescueThread::StartAnewInChild();
    UnlockAfterFork();
}

void RegisterForkHandlers() {
    static const bool registered = [] {
        SwitchMutex();
        const int error = pthread_atfork(LockForFork, UnlockAfterFork, StartAnewInChild);
        if (error != 0) {
            throw std::system_error(error, std::generic_category(), "no handlers for forks");
        }
        return true;
    }();
    static_cast<void>(registered);
}

void GiveStackToThisThread() {
    thread_local const CrashStack stack;
    static_cast<void>(stack);
}

}  // namespace

void SaveOnCrash(const CrashOptions& options) {
    RegisterForkHandlers();
    if (options.provideStack) {
        GiveStackToThisThread();
    }
    const std::lock_guard lock(SwitchMutex());
    CrashHandler::RequireHandleable(options.signals);
    RescueThread::Start();
    RescueThread::SetDeadline(options.deadline);
    CrashHandler::Install(options.signals);
    if (options.onTerminate) {
        CrashHandler::InstallForTerminate();
    }
}

void SaveOnCrash() {
    SaveOnCrash(CrashOptions());
}

void StopSavingOnCrash() noexcept {
    const std::lock_guard lock(SwitchMutex());
    CrashHandler::Uninstall();
    RescueThread::Stop();
}

}  // namespace Metrics
