-- What the service expects on a MySQL or MariaDB server before its first start; `midtablectl setup`
-- makes it by these statements. The service makes the databases of the devices ("WLAN_" and eight
-- digits) and their tables itself.

-- Where it logs in, and where the registry looks for enterprise users.
create database if not exists vqcfg;
create table if not exists vqcfg.EnterpriseUser (
  crc  int unsigned not null primary key comment 'user code',
  name varchar(64)  not null
) engine = InnoDB;

-- Where it looks for month tables without delivery=once. It never creates one here; without this
-- database every conversion of a month table leaves an error line in the run log then.
create database if not exists WLAN_TUNE;
