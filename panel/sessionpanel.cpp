#include "sessionpanel.h"

#include <QHeaderView>
#include <QSignalBlocker>

#include "ui_sessionpanel.h"

SessionPanel::SessionPanel(QWidget* parent) : QWidget(parent), ui(new Ui::SessionPanel) {
    ui->setupUi(this);
    setAttribute(Qt::WA_StyledBackground, true);

    // The target table is prepared but stays hidden; the IR pane fills it.
    QTableWidget* table = ui->tableWidget;
    table->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    table->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    table->verticalHeader()->setHidden(true);
    table->setShowGrid(false);
    table->clear();
    table->setRowCount(0);
    table->setColumnCount(3);
    table->setHorizontalHeaderLabels({"ID", "Position", "Pose"});
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    table->horizontalHeader()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    table->hide();
    ui->pushButton_3->hide();
    ui->groupBox_4->setEnabled(false);
    // The full layout, with the colour parts, until a camera says otherwise.
    switchUi(true);
    retranslate();

    connect(ui->pushButton, &QPushButton::clicked, this, &SessionPanel::searchRequested);
    connect(ui->pushButton_2, &QPushButton::clicked, this, [this] {
        // The button's meaning comes from the session's state, not its caption.
        if (status_.streamingFace())
            emit stopRequested();
        else
            emit startRequested(ui->comboBox->currentIndex());
    });
    connect(ui->pushButton_6, &QPushButton::clicked, this, &SessionPanel::disconnectRequested);
    connect(ui->comboBox, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [this](int) {
        // Refilling the list changes the index too; only the user's choice counts.
        if (ui->comboBox->count() > 0) emit deviceChangeRequested();
    });
    connect(ui->checkBox_dep2rgb, &QCheckBox::clicked, this,
            [this] { onRegistrationClicked(ui->checkBox_dep2rgb, ui->checkBox_rgb2dep); });
    connect(ui->checkBox_rgb2dep, &QCheckBox::clicked, this,
            [this] { onRegistrationClicked(ui->checkBox_rgb2dep, ui->checkBox_dep2rgb); });
    connect(ui->checkBox_rgb2pointcloud, &QCheckBox::clicked, this, &SessionPanel::colouredCloudChanged);
    connect(ui->pushButton_3, &QPushButton::clicked, this, &SessionPanel::trayRecordingRequested);
    showStatus();
}

SessionPanel::~SessionPanel() { delete ui; }

std::array<QCheckBox*, 4> SessionPanel::paneCheckBoxes() const {
    return {ui->checkBoxDep, ui->checkBoxIr, ui->checkBoxCp, ui->checkBoxRgb};
}

QTableWidget* SessionPanel::trayTable() const { return ui->tableWidget; }

int SessionPanel::currentRow() const { return ui->comboBox->currentIndex(); }

QString SessionPanel::currentDeviceText() const { return ui->comboBox->currentText(); }

void SessionPanel::retranslate() {
    ui->retranslateUi(this);
    ui->pushButton->setText(tr("搜索设备"));
    ui->checkBoxIr->setText(tr("IR图"));
    ui->checkBoxRgb->setText(tr("RGB"));
    ui->checkBoxCp->setText(tr("点云"));
    ui->checkBoxDep->setText(tr("深度图"));
    showStatus();
}

void SessionPanel::switchUi(bool isRGB) {
    for (QWidget* w : std::initializer_list<QWidget*>{ui->checkBox_dep2rgb, ui->checkBox_rgb2dep,
                                                      ui->checkBox_rgb2pointcloud, ui->checkBoxRgb})
        w->setVisible(isRGB);
    ui->label_14->hide();
    if (isRGB) return;
    const bool registered = ui->checkBox_dep2rgb->isChecked() || ui->checkBox_rgb2dep->isChecked();
    ui->checkBoxRgb->setChecked(false);
    ui->checkBox_rgb2pointcloud->setChecked(false);
    ui->checkBox_dep2rgb->setChecked(false);
    // A camera without colour has no registered frames to read.
    if (registered) emitRegistration();
}

void SessionPanel::setRegistrationAllowed(bool allowed) {
    if (!allowed) {
        const bool registered = ui->checkBox_dep2rgb->isChecked() || ui->checkBox_rgb2dep->isChecked();
        const bool coloured = ui->checkBox_rgb2pointcloud->isChecked();
        for (QCheckBox* box : {ui->checkBox_dep2rgb, ui->checkBox_rgb2dep, ui->checkBox_rgb2pointcloud}) {
            box->setChecked(false);
            box->setEnabled(false);
        }
        if (registered) emitRegistration();
        if (coloured) emit colouredCloudChanged(false);
        return;
    }
    ui->checkBox_dep2rgb->setEnabled(true);
    ui->checkBox_rgb2dep->setEnabled(true);
}

void SessionPanel::fillConfiguration(PanelConfig& c) const {
    c.depShow = ui->checkBoxDep->isChecked();
    c.irShow = ui->checkBoxIr->isChecked();
    c.cpShow = ui->checkBoxCp->isChecked();
    c.rgbShow = ui->checkBoxRgb->isChecked();
    c.rgb2dep = ui->checkBox_rgb2dep->isChecked();
    c.dep2rgb = ui->checkBox_dep2rgb->isChecked();
    c.rgb2pointcloud = ui->checkBox_rgb2pointcloud->isChecked();
}

void SessionPanel::showConfiguration(const PanelConfig& c) {
    ui->checkBoxIr->setChecked(c.irShow);
    ui->checkBoxDep->setChecked(c.depShow);
    ui->checkBoxCp->setChecked(c.cpShow);
    ui->checkBoxRgb->setChecked(c.rgbShow);
    ui->checkBox_rgb2dep->setChecked(c.rgb2dep);
    ui->checkBox_dep2rgb->setChecked(c.dep2rgb);
    ui->checkBox_rgb2pointcloud->setChecked(c.rgb2pointcloud);
}

void SessionPanel::showImportedRegistration(bool registered) { ui->checkBox_rgb2pointcloud->setEnabled(registered); }

void SessionPanel::onRegistrationClicked(QCheckBox* own, QCheckBox* other) {
    Q_UNUSED(own);
    if (other->isChecked()) {
        const QSignalBlocker blocker(other);
        other->setChecked(false);
    }
    emitRegistration();
}

void SessionPanel::emitRegistration() {
    const bool rgbToDepth = ui->checkBox_rgb2dep->isChecked();
    const bool depthToRgb = ui->checkBox_dep2rgb->isChecked();
    // Coloured points need a registered frame; without one the box is moot.
    ui->checkBox_rgb2pointcloud->setEnabled(rgbToDepth || depthToRgb);
    emit registrationChanged(rgbToDepth, depthToRgb, ui->checkBox_rgb2pointcloud->isChecked());
}

void SessionPanel::applySessionStatus(const SessionStatus& status) {
    status_ = status;
    showStatus();
}

void SessionPanel::applySessionEvent(SessionEvent event, const SessionStatus& status) {
    status_ = status;
    switch (event) {
        case SessionEvent::ControlsOn:
            ui->groupBox_4->setEnabled(true);
            break;
        case SessionEvent::ControlsOff:
            ui->groupBox_4->setEnabled(false);
            break;
        case SessionEvent::PreparingStream:
            ui->checkBox_rgb2pointcloud->setEnabled(false);
            break;
        case SessionEvent::StreamStarted:
            if (status.device.model) switchUi(status.device.model->rgbLayout);
            break;
        default:
            break;
    }
    showStatus();
}

void SessionPanel::showStatus() {
    const SessionStatus& s = status_;
    QStringList shown;
    for (int i = 0; i < ui->comboBox->count(); ++i) shown << ui->comboBox->itemText(i);
    if (shown != s.devices) {
        const QSignalBlocker blocker(ui->comboBox);
        ui->comboBox->clear();
        ui->comboBox->addItems(s.devices);
    }

    const DeviceDetails& d = s.device;
    auto field = [&d](const QString& value) { return d.present ? ": " + value : QString(); };
    ui->label_SN->setText(field(d.serial));
    ui->label_FW->setText(field(d.firmware));
    ui->label_DV->setText(field(d.deviceVersion));
    ui->label_IP->setText(field(d.address));
    ui->label_Model->setText(d.present && d.model ? ": " + d.model->name : QString());

    if (!s.activity.isEmpty())
        ui->label_statusBar->setText(s.activity);
    else
        ui->label_statusBar->setText(s.state == SessionState::Idle || s.searchDue ? tr(" 等待搜索...")
                                                                                  : tr("已搜索到设备"));

    const bool free = !s.busy;
    ui->pushButton->setEnabled(free && (s.state == SessionState::Idle || s.state == SessionState::Listed));
    ui->pushButton_2->setText(s.streamingFace() ? tr("停止") : tr("开始"));
    ui->pushButton_2->setEnabled(free && s.state != SessionState::Idle);
    ui->pushButton_6->setEnabled(free && s.connected());
    ui->comboBox->setEnabled(free);
}
