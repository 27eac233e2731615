#pragma once

#include <QObject>
#include <QString>
#include <optional>

// The import screen's own state. It outlives the screen, so that a failure written while another
// screen is shown is there when the import screen comes back.
class ImportScreenState : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString urlText READ urlText WRITE setUrlText NOTIFY urlTextChanged)
    Q_PROPERTY(QString droppedFile READ droppedFileText NOTIFY droppedFileChanged)
    Q_PROPERTY(bool isProcessing READ isProcessing WRITE setProcessing NOTIFY isProcessingChanged)
    Q_PROPERTY(QString errorMessage READ errorMessageText NOTIFY errorMessageChanged)

public:
    using QObject::QObject;

    const QString& urlText() const { return m_urlText; }
    const std::optional<QString>& droppedFile() const { return m_droppedFile; }
    QString droppedFileText() const { return m_droppedFile.value_or(QString()); }
    bool isProcessing() const { return m_isProcessing; }
    const std::optional<QString>& errorMessage() const { return m_errorMessage; }
    QString errorMessageText() const { return m_errorMessage.value_or(QString()); }

    void setUrlText(const QString& text);
    void setDroppedFile(const std::optional<QString>& path);
    void setProcessing(bool processing);
    void setErrorMessage(const std::optional<QString>& message);

Q_SIGNALS:
    void urlTextChanged();
    void droppedFileChanged();
    void isProcessingChanged();
    void errorMessageChanged();

private:
    QString m_urlText;
    std::optional<QString> m_droppedFile;
    bool m_isProcessing = false;
    std::optional<QString> m_errorMessage;
};
