-- Samba audit statements.
-- aud_date is never filled by the append, so the retention statement that
-- deletes by it removes nothing; kept as it is.

SQL: smbaudit_dir_loadby
SELECT * FROM T_SmbAudit_dir ORDER BY sad_no

SQL: smbaudit_dir_exists
SELECT * FROM T_SmbAudit_dir WHERE sad_dir = :dir LIMIT 1
Params:
dir string

SQL: smbaudit_dir_append
INSERT INTO T_SmbAudit_dir (sad_datetime, sad_dir) VALUES (datetime('now', 'localtime'), :dir)
Params:
dir string

SQL: smbaudit_dir_remove
DELETE FROM T_SmbAudit_dir WHERE sad_no = :sadno
Params:
sadno int

SQL: smbaudit_log_count
SELECT COUNT(*) AS rec_count FROM T_SmbAudit_log WHERE (:sadno <= 0 OR sad_no = :sadno)
Params:
sadno int

SQL: smbaudit_log_loadby
SELECT * FROM T_SmbAudit_log WHERE (:sadno <= 0 OR sad_no = :sadno)
ORDER BY aud_no DESC LIMIT :ofpage OFFSET (:page-1) * :ofpage
Params:
sadno int
ofpage int
page int

SQL: smbaudit_log_export
SELECT * FROM T_SmbAudit_log WHERE (:sadno <= 0 OR sad_no = :sadno) ORDER BY aud_no DESC
Params:
sadno int

SQL: smbaudit_log_append
INSERT INTO T_SmbAudit_log (sad_no, aud_datetime, aud_filepath, aud_user, aud_group, aud_ipaddr,
                            aud_machine, aud_sharename, aud_action, aud_explain)
VALUES (:sadno, :datetime, :filepath, :user, :group, :ipaddr, :machine, :sharename, :action,
        :explain)
Params:
sadno int
datetime string
filepath string
user string
group string
ipaddr string
machine string
sharename string
action int
explain string

SQL: smbaudit_log_remove
DELETE FROM T_SmbAudit_log WHERE aud_no = :audno
Params:
audno int

SQL: smbaudit_log_erase
DELETE FROM T_SmbAudit_log WHERE sad_no = :sadno
Params:
sadno int

SQL: smbaudit_log_clean
DELETE FROM T_SmbAudit_log WHERE sad_no NOT IN (SELECT sad_no FROM T_SmbAudit_dir)

SQL: smbaudit_truncate
DELETE FROM T_SmbAudit_log

SQL: smbaudit_log_limitdate
DELETE FROM T_SmbAudit_log WHERE aud_date <= :limitdate
Params:
limitdate string
