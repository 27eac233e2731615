#include "ImportScreenState.h"

void ImportScreenState::setUrlText(const QString& text) {
    if (m_urlText == text)
        return;
    m_urlText = text;
    Q_EMIT urlTextChanged();
}

void ImportScreenState::setDroppedFile(const std::optional<QString>& path) {
    if (m_droppedFile == path)
        return;
    m_droppedFile = path;
    Q_EMIT droppedFileChanged();
}

void ImportScreenState::setProcessing(bool processing) {
    if (m_isProcessing == processing)
        return;
    m_isProcessing = processing;
    Q_EMIT isProcessingChanged();
}

void ImportScreenState::setErrorMessage(const std::optional<QString>& message) {
    if (m_errorMessage == message)
        return;
    m_errorMessage = message;
    Q_EMIT errorMessageChanged();
}
