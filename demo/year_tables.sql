-- Year tables of one device's database, at /etc/morvan/year_tables.sql. The service neither looks for
-- year tables nor makes them: `midtablectl setup` and `midtablectl year-tables` do, by these
-- statements, in which _YYYY stands for the year. By hand, in the database of a device:
--
--   sed 's/_YYYY/_2013/' year_tables.sql | mariadb WLAN_1a2b3c4d
--
-- Nothing but "create table if not exists" may stand here.

create table if not exists T_FLOW1Y_YYYY (
  month      tinyint unsigned not null,
  local_flag tinyint          not null comment '1 local, 0 visitor, 2 without user, 3 not known',
  sessions   bigint unsigned  not null,
  seconds    bigint unsigned  not null,
  up_bytes   bigint unsigned  not null,
  down_bytes bigint unsigned  not null,
  primary key (month, local_flag)
) engine = InnoDB;

create table if not exists T_AUTH1Y_YYYY (
  month    tinyint unsigned not null primary key,
  attempts bigint unsigned  not null,
  failures bigint unsigned  not null
) engine = InnoDB;
