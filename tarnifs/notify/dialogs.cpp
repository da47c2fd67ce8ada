#include "tarnifs/notify/dialogs.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "tarnifs/mount/host.h"
#include "util/log.h"

char ErrMsg[512];

namespace
{

struct DIALOG {
    const char *title;
    char message[512];
    const char *button;
};

// Takes the waiting dialog out of the block. What is raised from here on counts
// as a further one. False: nothing waits.
bool takeDialog(_DIALOG_BLOCK *block, DIALOG *dialog)
{
    const std::lock_guard<std::mutex> guard(block->lock);
    if (block->dialog_pending != 1) {
        return false;
    }
    dialog->title = block->dialog_title;
    memcpy(dialog->message, block->dialog_message, sizeof(dialog->message));
    dialog->button = block->dialog_button;
    block->dialog_pending = 0;
    return true;
}

// The flag is cleared before the refresh, so that a request made meanwhile is
// not lost. refresh_busy keeps two refreshes from running at once.
void refreshIfWanted(_DIALOG_BLOCK *block)
{
    if (block->finder_refresh != 1) {
        return;
    }
    int32_t idle = 0;
    if (!block->refresh_busy.compare_exchange_strong(idle, 1)) {
        return;
    }
    block->finder_refresh = 0;
    hostRefreshFileManager();
    block->refresh_busy += -1;
}

} // namespace

// NOLINTNEXTLINE(cert-dcl50-cpp): checked like printf
void ShowMessageBox(int kind, const char *format, ...)
{
    _CONTEXT *context = nullptr;
    const int ret = getContext(&context);
    if (ret != 0) {
        QNLog(3, "%s getContext failed. ret : %d", "ShowMessageBox", ret);
        QNLog(3, "%s Error. ret : %d", "ShowMessageBox", ret);
        return;
    }
    _DIALOG_BLOCK &block = context->dialog;
    {
        const std::lock_guard<std::mutex> guard(block.lock);
        block.dialog_pending = 1;
        block.dialog_title = getMsgTypeString(kind);
        memset(block.dialog_message, 0, sizeof(block.dialog_message));
        va_list arguments;
        va_start(arguments, format);
        vsnprintf(block.dialog_message, sizeof(block.dialog_message), format,
                  arguments);
        va_end(arguments);
        block.dialog_button = MESSAGE_BUTTON;
    }
    if (context->dialog_thread_exists) {
        pthread_kill(context->dialog_thread, SIGUSR1);
    }
}

int ReportDeviceFailure(const DEVICE_FAILURE &failure, bool lost,
                        const char *name, int code)
{
    ComposeMessage(ErrMsg, sizeof(ErrMsg), lost ? failure.lost : failure.other,
                   name, code);
    ShowMessageBox(MESSAGE_ERROR, "%s", ErrMsg);
    return -ECANCELED;
}

int ReportError(const char *text, const char *name)
{
    ComposeMessage(ErrMsg, sizeof(ErrMsg), text, name, 0);
    ShowMessageBox(MESSAGE_ERROR, "%s", ErrMsg);
    return -ECANCELED;
}

int ReportRefusal(const char *text, const char *path)
{
    char message[sizeof(ErrMsg)];
    ComposeMessage(message, sizeof(message), text, path, 0);
    ShowMessageBox(MESSAGE_NOTIFICATION, "%s", message);
    return -ECANCELED;
}

void StartDialogThread(_CONTEXT *context)
{
    _DIALOG_BLOCK &block = context->dialog;
    block.dialog_run = 1;
    block.refresh_busy = 0;
    sigemptyset(&block.dialog_sigset);
    sigaddset(&block.dialog_sigset, SIGUSR1);
    if (pthread_sigmask(SIG_BLOCK, &block.dialog_sigset, nullptr) != 0) {
        QNLog(3, "%s pthread_sigmask fail.", "tarnifs_init");
    }
    const int ret = pthread_create(&context->dialog_thread, nullptr,
                                   messageDialogThread, &block);
    context->dialog_thread_exists = ret == 0;
    if (ret != 0) {
        QNLog(3, "%s thread create fail.", "tarnifs_init");
    }
}

void StopDialogThread(_CONTEXT *context)
{
    if (!context->dialog_thread_exists) {
        return;
    }
    context->dialog.dialog_run = 0;
    hostEndDialog();
    pthread_kill(context->dialog_thread, SIGUSR1);
    pthread_join(context->dialog_thread, nullptr);
    context->dialog_thread_exists = false;
}

void *messageDialogThread(void *dialogBlock)
{
    auto *block = static_cast<_DIALOG_BLOCK *>(dialogBlock);
    while (block->dialog_run == 1) {
        int signal = 0;
        const int ret = sigwait(&block->dialog_sigset, &signal);
        if (ret != 0) {
            QNLog(3, "%s sigwait error : %d", "messageDialogThread", ret);
            continue;
        }
        // Woken to end: what still waits is not worth keeping the unmount.
        if (block->dialog_run != 1) {
            break;
        }
        DIALOG dialog{};
        if (takeDialog(block, &dialog)) {
            hostShowDialog(dialog.title, dialog.message, dialog.button);
        }
        refreshIfWanted(block);
    }
    return nullptr;
}
